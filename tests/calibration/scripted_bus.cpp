// The link tests' scripted USB bus, built into this suite as well so that
// the calibration reads are checked frame by frame on the same fake.
#include "../link/fake_d2xx.cpp"
