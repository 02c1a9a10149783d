// qor: list the analyzers on the bus, show one, sweep a span or record I/Q.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "info_commands.h"
#include "iq_command.h"
#include "session.h"
#include "sweep_command.h"
#include "view_command.h"
#include "virtual_instrument.h"

int main(int argc, char** argv) {
    CLI::App app{"qor: command-line access to qor USB spectrum analyzers"};
    app.require_subcommand(1);
    bool sim = false;
    std::string bench;
    auto addSimOptions = [&](CLI::App* command) {
        command->add_flag("--sim", sim, "use the virtual instrument of the build in place of USB hardware");
        command->add_option("--bench", bench, "bench file of the virtual instrument (JSON)")->check(CLI::ExistingFile);
    };

    CLI::App* list = app.add_subcommand("list", "list the units on the bus with serial, type and firmware");
    addSimOptions(list);

    int infoSerial = 0;
    CLI::App* info = app.add_subcommand("info", "show serial, type, firmware, temperature and voltage of a unit");
    info->add_option("--serial", infoSerial, "serial number (default: the first unit)");
    addSimOptions(info);

    qortool::SweepOptions sweep;
    CLI::App* sweepCommand = app.add_subcommand("sweep", "sweep a span and report peaks, CSV and a plot");
    sweepCommand->add_option("--serial", sweep.serial, "serial number (default: the first unit)");
    auto* center = sweepCommand->add_option("--center", sweep.center, "center frequency, e.g. 2.4G");
    auto* span = sweepCommand->add_option("--span", sweep.span, "span, e.g. 100M");
    auto* start = sweepCommand->add_option("--start", sweep.start, "start frequency");
    auto* stop = sweepCommand->add_option("--stop", sweep.stop, "stop frequency");
    start->excludes(center)->excludes(span);
    stop->excludes(center)->excludes(span);
    sweepCommand->add_option("--rbw", sweep.rbw, "resolution bandwidth, e.g. 10k")->capture_default_str();
    sweepCommand->add_option("--vbw", sweep.vbw, "video bandwidth (default: the RBW)");
    sweepCommand->add_option("--ref", sweep.refLevel, "reference level in dBm")->capture_default_str();
    sweepCommand->add_option("--atten", sweep.atten, "attenuator steps 0..3 (default: automatic)");
    sweepCommand->add_option("--gain", sweep.gain, "gain index 0..2 (default: automatic)");
    sweepCommand->add_flag("--preamp", sweep.preamp, "switch the preamplifier on");
    sweepCommand->add_flag("--reject,!--no-reject", sweep.reject,
                           "image rejection: on by default (--reject says so), off with --no-reject");
    sweepCommand->add_option("--detector", sweep.detector, "minmax or average")
        ->check(CLI::IsMember({"minmax", "average"}))
        ->capture_default_str();
    sweepCommand->add_option("--scale", sweep.scale, "dbm or mv")
        ->check(CLI::IsMember({"dbm", "mv"}))
        ->capture_default_str();
    sweepCommand->add_option("--sweeps", sweep.sweeps, "number of sweeps, 0 = until interrupted")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    sweepCommand->add_option("--csv", sweep.csv, "write the trace as CSV");
    sweepCommand->add_option("--png", sweep.png, "write a plot of the trace as PNG");
    sweepCommand->add_option("--peaks", sweep.peaks, "strongest peaks to list")->check(CLI::Range(0, 100))->capture_default_str();
    addSimOptions(sweepCommand);
    sweepCommand->footer(
        "Image rejection views each step twice, so a sweep takes longer; without it a strong signal\n"
        "also shows as an image 21.4 MHz below itself, which can read as strong as the signal.\n"
        "Sweeps with an RBW above 300 kHz whose start and span are 200 MHz or more use the broadband\n"
        "detector, which removes images by itself and ignores --reject and --no-reject.\n"
        "What rejection cannot do: in the fast sweep at RBW 250 kHz no image below 16.1 MHz is\n"
        "removed, and at 100 kHz images below 16.1 MHz are only partly removed (about 15-19 dB);\n"
        "at 30 kHz and below they are gone.\n"
        "A flat top is reported at its centre. A level marked * stands less than 20 dB above the\n"
        "noise floor (the median of the trace) and reads high by the noise.");

    qortool::IqOptions iq;
    CLI::App* iqCommand = app.add_subcommand("iq", "record calibrated I/Q as SigMF, or stream it raw to stdout");
    iqCommand->add_option("--serial", iq.serial, "serial number (default: the first unit)");
    iqCommand->add_option("--center", iq.center, "center frequency, e.g. 1G")->required();
    iqCommand->add_option("--decimation", iq.decimation, "decimation of the 486.111 kS/s stream, a power of two 1..128")
        ->check(CLI::IsMember({1, 2, 4, 8, 16, 32, 64, 128}))
        ->capture_default_str();
    iqCommand->add_option("--bandwidth", iq.bandwidth, "filter bandwidth, e.g. 100k (default: the widest there is)");
    CLI::Option_group* length = iqCommand->add_option_group("length", "how much to record, one of");
    length->add_option("--seconds", iq.seconds, "length in seconds")->check(CLI::PositiveNumber);
    length->add_option("--samples", iq.samples, "length in samples")->check(CLI::PositiveNumber);
    length->require_option(1);
    iqCommand->add_option("--out", iq.out, "NAME: write NAME.sigmf-data and NAME.sigmf-meta; -: raw samples to stdout")
        ->required();
    iqCommand
        ->add_option("--format", iq.format,
                     "cf32: float32 I, Q as calibrated, I^2+Q^2 in mW (magnitude 1.0 = 0 dBm); "
                     "cs16: int16 I, Q with 32767 = magnitude 1.0, clipped (0 dBm full scale)")
        ->check(CLI::IsMember({"cf32", "cs16"}))
        ->capture_default_str();
    iqCommand->add_option("--ref", iq.refLevel, "reference level in dBm (default: the unit's preset)");
    auto* iqAtten = iqCommand->add_option("--atten", iq.atten, "attenuator steps 0..3, with --gain (default: automatic)");
    iqAtten->check(CLI::Range(0, 3));
    auto* iqGain = iqCommand->add_option("--gain", iq.gain, "gain index 0..2, with --atten")->check(CLI::Range(0, 2));
    iqAtten->needs(iqGain);
    iqGain->needs(iqAtten);
    iqCommand->add_flag("--preamp", iq.preamp, "preamplifier on (with --atten and --gain; else --ref decides)")
        ->needs(iqAtten);
    addSimOptions(iqCommand);

    qortool::ViewOptions view;
    CLI::App* viewCommand = app.add_subcommand("view", "show a unit live on a web page: trace, waterfall, markers");
    viewCommand->add_option("--serial", view.serial, "serial number (default: the first unit)");
    viewCommand->add_option("--port", view.port, "TCP port, 0 for any free one")->check(CLI::Range(0, 65535))->capture_default_str();
    viewCommand->add_option("--listen", view.listen, "address to listen on: loopback by default, 0.0.0.0 to serve other machines")
        ->capture_default_str();
    addSimOptions(viewCommand);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    try {
        if (sim) qortool::UseVirtualInstrument(bench);
        if (*list) return qortool::RunList();
        if (*info) return qortool::RunInfo(infoSerial);
        if (*iqCommand) return qortool::RunIq(iq);
        if (*viewCommand) return qortool::RunView(view);
        sweep.showInjected = sim;
        return qortool::RunSweep(sweep);
    } catch (const qortool::ToolError& e) {
        std::fprintf(stderr, "qor: %s\n", e.what());
        return 1;
    }
}
