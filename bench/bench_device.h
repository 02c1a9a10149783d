// The unit a benchmark measures on: a unit of the virtual instrument's bench,
// shared by every benchmark that uses it.
#ifndef QOR_BENCH_BENCH_DEVICE_H
#define QOR_BENCH_BENCH_DEVICE_H

namespace qorbench {

// The device of the unit with this serial: the one already open (another
// benchmark may hold it), else opened now; -1 without an instrument.
int BenchDevice(unsigned serial);

// The CPU time of the host's own work: the process's CPU time less what the
// virtual instrument spent rendering samples (on the threads that read them).
class HostCpu {
public:
    // `serial`: the unit whose commands PauseSeconds counts.
    explicit HostCpu(unsigned serial = 0);
    double Seconds() const;
    // The instrument time of the samples rendered since construction: what
    // a free-running engine measured, whether or not a caller collected it.
    double InstrumentSeconds() const;
    // The pauses the link owes the unit after the commands sent since
    // construction (5 ms after each): time no real unit can be driven faster.
    double PauseSeconds() const;

private:
    unsigned serial_;
    double process_, instrument_;
    long long blocks_;
    int commands_;
};

// Closes every open device, before a benchmark replaces the bench (the units
// of the old bench leave the bus); BenchDevice opens them again on demand.
void CloseBenchDevices();

}  // namespace qorbench

#endif
