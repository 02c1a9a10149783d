// qor: list the analyzers on the bus, show one, or sweep a span.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "info_commands.h"
#include "session.h"
#include "sweep_command.h"
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
    sweepCommand->add_flag("--reject", sweep.reject, "image rejection");
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

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e);
    }
    try {
        if (sim) qortool::UseVirtualInstrument(bench);
        if (*list) return qortool::RunList();
        if (*info) return qortool::RunInfo(infoSerial);
        sweep.showInjected = sim;
        return qortool::RunSweep(sweep);
    } catch (const qortool::ToolError& e) {
        std::fprintf(stderr, "qor: %s\n", e.what());
        return 1;
    }
}
