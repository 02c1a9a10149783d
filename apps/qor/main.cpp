// qor: list the analyzers on the bus, show one, sweep a span, record I/Q,
// image a span in real time, measure with the tracking generator or listen.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "audio_command.h"
#include "info_commands.h"
#include "iq_command.h"
#include "realtime_command.h"
#include "session.h"
#include "sweep_command.h"
#include "tg_command.h"
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

    qortool::RealTimeOptions rt;
    CLI::App* rtCommand = app.add_subcommand("realtime", "image a span in real time: persistence PNG and frame sweep");
    rtCommand->add_option("--serial", rt.serial, "serial number (default: the first unit)");
    rtCommand->add_option("--center", rt.center, "center frequency, e.g. 868.3M")->required();
    rtCommand->add_option("--span", rt.span, "span, 1k to 250k")->required();
    rtCommand->add_option("--rbw", rt.rbw, "resolution bandwidth, 100 to 10k")->capture_default_str();
    rtCommand->add_option("--ref", rt.refLevel, "reference level in dBm, the top of the image")->capture_default_str();
    rtCommand->add_option("--scale", rt.frameScale, "dB the image covers below the reference level")->capture_default_str();
    rtCommand->add_option("--rate", rt.frameRate, "frames per second, 4 to 30")->capture_default_str();
    rtCommand->add_option("--overlap", rt.overlap, "step between FFTs as a fraction of their length, 0.125 to 10")
        ->capture_default_str();
    rtCommand->add_option("--detector", rt.detector, "frame sweep: minmax (peak) or average")
        ->check(CLI::IsMember({"minmax", "average"}))
        ->capture_default_str();
    rtCommand->add_option("--frames", rt.frames, "frames to take; the image sums the last 39")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    rtCommand->add_option("--png", rt.png, "write the last frame's persistence image as PNG");
    rtCommand->add_option("--png-dir", rt.pngDir, "write one PNG per frame into this folder");
    rtCommand->add_option("--sweep-csv", rt.sweepCsv, "write the last frame sweep as CSV");
    addSimOptions(rtCommand);
    qortool::TgOptions tg;
    CLI::App* tgCommand = app.add_subcommand("tg", "measure a device under test with the tracking generator, against a thru");
    tgCommand->add_option("--serial", tg.serial, "serial number of the analyzer (default: the first unit)");
    tgCommand->add_option("--start", tg.start, "start frequency, e.g. 100M")->required();
    tgCommand->add_option("--stop", tg.stop, "stop frequency, e.g. 2G")->required();
    tgCommand->add_option("--points", tg.points, "points wanted, 10..1024 (the sweep takes a nearby count)")
        ->check(CLI::Range(10, 1024))
        ->capture_default_str();
    tgCommand->add_flag("--high-range", tg.highRange, "a second pass that extends the measurable depth");
    tgCommand->add_flag("--preamp", tg.preamp, "the preamplifier (from 250 kHz)");
    auto* thru = tgCommand->add_flag("--thru", tg.thru, "measure and store the thru first (the cable alone)");
    tgCommand->add_option("--save-thru", tg.saveThru, "keep the thru in this file")->needs(thru);
    tgCommand->add_option("--thru-file", tg.thruFile, "take the thru from a file --save-thru wrote")
        ->check(CLI::ExistingFile)
        ->excludes(thru);
    tgCommand->add_option("--sweeps", tg.sweeps, "sweeps of the device under test; the last counts")
        ->capture_default_str();
    tgCommand->add_option("--csv", tg.csv, "write the response as CSV (frequency_hz, s21_db)");
    tgCommand->add_option("--png", tg.png, "write a plot of the response as PNG");
    tgCommand->add_option("--dut", tg.dut,
                          "with --sim: the device under test swapped in after the thru, as the bench's \"dut\" "
                          "JSON (default: the bench's own)");
    addSimOptions(tgCommand);
    tgCommand->footer(
        "Without --sim the tool asks you to connect the thru cable, then the device under test.\n"
        "A thru from a file is taken off the first pass; a thru stored in the same run also\n"
        "references the second pass of --high-range, which reaches some 20 dB deeper.");
    qortool::AudioOptions audio;
    CLI::App* audioCommand = app.add_subcommand(
        "audio", "demodulate AM, FM, USB, LSB or CW: raw S16_LE mono at 30382 samples/s to stdout, or a WAV file");
    audioCommand->add_option("--serial", audio.serial, "serial number (default: the first unit)");
    audioCommand->add_option("--center", audio.center, "carrier frequency, e.g. 98.1M")->required();
    audioCommand->add_option("--mode", audio.mode, "am, fm, usb, lsb or cw")
        ->check(CLI::IsMember({"am", "fm", "usb", "lsb", "cw"}))
        ->required();
    audioCommand->add_option("--bandwidth", audio.bandwidth,
                             "channel width, e.g. 10k (default: am 10k, fm 200k, usb and lsb 6k, cw 3k)");
    audioCommand->add_option("--seconds", audio.seconds, "length in seconds (default: until interrupted)")
        ->check(CLI::PositiveNumber);
    audioCommand->add_option("--wav", audio.wav, "write a WAV file in place of raw samples on stdout");
    audioCommand->add_option("--ref", audio.refLevel, "reference level in dBm, sets the level (default: the unit's preset)");
    addSimOptions(audioCommand);
    audioCommand->footer(
        "Raw samples play with: qor audio --center 98.1M --mode fm | aplay -r 30382 -f S16_LE -t raw\n"
        "A demodulated level of 1.0 is 6 dB below full scale. The sideband and AM levels follow the\n"
        "carrier by themselves; FM is scaled by the channel width.");
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
        if (*rtCommand) return qortool::RunRealTime(rt);
        if (*tgCommand) {
            tg.sim = sim;
            return qortool::RunTg(tg);
        }
        if (*audioCommand) return qortool::RunAudio(audio);
        if (*viewCommand) return qortool::RunView(view);
        sweep.showInjected = sim;
        return qortool::RunSweep(sweep);
    } catch (const qortool::ToolError& e) {
        std::fprintf(stderr, "qor: %s\n", e.what());
        return 1;
    }
}
