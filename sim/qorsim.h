/* Control interface of the virtual instrument (libqor_sim.so), for tests and
 * tools. The same library also exports the 15 D2XX functions, so that it
 * loads in place of the vendor's driver; a test that dlopens the path the
 * library loaded reaches the same bus.
 *
 * Life cycle: the bench (units, signals, clock, pacing) is read from the file
 * named by QOR_SIM_BENCH, or the built-in default bench, when the library is
 * first used. qorsim_load_bench_* replace the whole bench at run time: the
 * units of the old bench leave the bus, and their open handles fail.
 *
 * Units are named by their serial number. Functions that take one return 0 on
 * success and -1 when no such unit is on the bench. All functions are thread
 * safe and never throw. */
#ifndef QOR_SIM_QORSIM_H
#define QOR_SIM_QORSIM_H

#ifdef __cplusplus
extern "C" {
#endif

#define QORSIM_API __attribute__((visibility("default")))

/* ---- bench ------------------------------------------------------------ */

/* Replace the bench; 0, or -1 for a bench that does not parse (see qorsim_last_error). */
QORSIM_API int qorsim_load_bench_json(const char* json);
QORSIM_API int qorsim_load_bench_file(const char* path);
/* Message of the last failed load on this thread, "" if none. */
QORSIM_API const char* qorsim_last_error(void);
/* The JSON text of the bench in force (the default bench's own text when no
 * file was given); valid on this thread until the next call. */
QORSIM_API const char* qorsim_bench_json(void);
/* Speed of the instrument clock against real time: 1.0 for clock "real", 100.0 for "fast".
 * The library runs its own sleep and tick clock at this speed. */
QORSIM_API double qorsim_clock_scale(void);

/* ---- conditions and faults -------------------------------------------- */

/* Unplug after `afterMs` milliseconds of real time (0: now): from then on every
 * call on the unit's handles fails and the unit is gone from the device list. */
QORSIM_API int qorsim_unplug(unsigned serial, double afterMs);
/* Plug it in again, as a fresh unit (handles from before stay dead). */
QORSIM_API int qorsim_replug(unsigned serial);
/* With chance `chance` (0..1) each read of the stream channel hands over only
 * part of what was asked although more is queued, as a driver may. */
QORSIM_API int qorsim_short_reads(unsigned serial, double chance);
/* A stalled stream channel delivers nothing until released; commands still work. */
QORSIM_API int qorsim_stall_stream(unsigned serial, int stalled);
/* Drop, or corrupt (XOR 0xA5), `count` bytes of the stream channel, starting
 * `offset` bytes after the last byte the unit has sent so far. */
QORSIM_API int qorsim_drop_stream_bytes(unsigned serial, unsigned long long offset, unsigned long long count);
QORSIM_API int qorsim_corrupt_stream_bytes(unsigned serial, unsigned long long offset, unsigned long long count);
/* The next `count` frame headers of a framed hop program are left out. */
QORSIM_API int qorsim_lose_frame_headers(unsigned serial, int count);
/* The next `count` frames carry one step fewer (or one more for a one-step
 * segment), with a header that says so. */
QORSIM_API int qorsim_wrong_size_frames(unsigned serial, int count);
/* The next `missing` replies on the command channel are not sent, then the
 * next `garbage` replies are noise of the right length; -1 means every reply. */
QORSIM_API int qorsim_reply_faults(unsigned serial, int missing, int garbage);
/* Channel A listed as open by another process, and refusing to open. */
QORSIM_API int qorsim_hold_stream_channel(unsigned serial, int held);
/* The next `count` firmware strings carry an unknown device type. */
QORSIM_API int qorsim_unknown_firmware(unsigned serial, int count);
/* The oven oscillator (12.4 GHz family) warms up for `ms` more milliseconds of the instrument clock. */
QORSIM_API int qorsim_oven_warming(unsigned serial, double ms);
/* Oven current reading in mA (below 30 the library gives up on the unit). */
QORSIM_API int qorsim_oven_current(unsigned serial, double milliamps);
/* A reference signal at the reference input, or none. */
QORSIM_API int qorsim_reference_present(unsigned serial, int present);
QORSIM_API int qorsim_set_temperature(unsigned serial, double celsius);
/* Sample blocks lost because the host read too slowly (realtime pacing); -1 if no such unit. */
QORSIM_API long long qorsim_lost_blocks(unsigned serial);
/* CPU seconds the instrument has spent rendering sample blocks in this
 * process, all units together: it renders on the thread that reads the
 * stream, so a benchmark takes it off to see the host's own work. */
QORSIM_API double qorsim_render_cpu_seconds(void);
/* Sample blocks (512 samples) rendered in this process, all units together:
 * the instrument time a free-running engine actually consumed. */
QORSIM_API long long qorsim_rendered_blocks(void);

/* ---- command log -------------------------------------------------------- */

/* Decoded command payloads in the order they arrived, per unit (serial 0: all units). */
QORSIM_API int qorsim_command_count(unsigned serial);
/* Length of entry `index`, its payload copied up to `capacity` bytes; -1 if there is none. */
QORSIM_API int qorsim_command_log(unsigned serial, int index, unsigned char* payload, int capacity);
/* The raw bytes written to the unit's command channel; total length, copied up to `capacity`. */
QORSIM_API int qorsim_wire_log(unsigned serial, unsigned char* bytes, int capacity);
QORSIM_API void qorsim_clear_command_log(unsigned serial);

/* ---- physics and factory calibration ------------------------------------ */

/* True gain in dB of the unit from an input tone (dBm) to its complex tone in
 * the samples (dB relative to full scale), for a tone at `frequency` that lies
 * `ifOffset` Hz from the IF centre in the samples, with attenuator step
 * `atten` (0..3), gain index `gain` (0..2), the high IF or not, the
 * preamplifier (type 2), band `band` (-1: the band of the frequency) and the
 * temperature. A library correction for the same setting should come out as
 * -(gain) - 3.0, the 3.0 being the window's 3 dB that corrections take off.
 * NaN for an unknown serial. */
QORSIM_API double qorsim_path_gain(unsigned serial, double frequency, int atten, int gain, int highIf, int preamp,
                                   double ifOffset, int band, double temperature);
/* The factory calibration blocks as the unit serves them: the 4096-byte unit
 * block and the table block (458624 or 571616 bytes). Returns the table size;
 * each buffer may be null. */
QORSIM_API int qorsim_calibration_blocks(unsigned serial, unsigned char* unitBlock, int unitCapacity,
                                         unsigned char* tableBlock, int tableCapacity);
/* Writes the unit's table file as the download endpoint serves it, at
 * root + "/custdata/P" + first four digits + "/D" + eight digits + ".bin",
 * creating the folders; so a file:// base address of `root` serves it. */
QORSIM_API int qorsim_write_calibration_files(unsigned serial, const char* root);
/* The 4096-byte calibration memory of a generator; 0, or -1 for no such generator. */
QORSIM_API int qorsim_generator_eeprom(unsigned serial, unsigned char* eeprom, int capacity);

/* ---- tracking generator --------------------------------------------------- */

/* Swaps the device under test between the generator and its analyzer, as a
 * person swaps the thru cable for the device: `dut` is a JSON object as the
 * bench's "dut" field (e.g. {"kind": "attenuator", "loss": 20}). It counts
 * from the next block the analyzer renders. 0; -1 for no such generator or a
 * description that does not parse (see qorsim_last_error). */
QORSIM_API int qorsim_set_dut(unsigned generator, const char* dut);
/* Transmission of the generator's device under test at `frequency`, dB (0 or
 * less); NaN for no such generator. */
QORSIM_API double qorsim_dut_gain(unsigned generator, double frequency);
/* Output level in dBm of amplitude code `code` at `frequency`; NaN for no
 * such generator. */
QORSIM_API double qorsim_generator_level(unsigned generator, double frequency, int code);
/* The last reference choice the generator was sent ("R"); -1 for no such generator. */
QORSIM_API int qorsim_generator_reference(unsigned generator);

#ifdef __cplusplus
}
#endif

#endif
