// A scripted USB bus for the link's tests: a D2XX table whose channels are
// plain byte queues. A test lists the frames it expects the host to write and
// what the unit answers to each (a reply on the command channel, bytes on the
// stream channel, or nothing), and any other write fails the test.
#ifndef QOR_TESTS_FAKE_D2XX_H
#define QOR_TESTS_FAKE_D2XX_H

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "d2xx.h"

namespace qor::test {

using Bytes = std::vector<uint8_t>;

std::string Hex(const Bytes& bytes);

class FakeBus {
public:
    struct Channel {
        std::string serial;
        std::string description;
        DWORD flags = 0;                 // FT_FLAGS_OPENED: held by another process
        bool open = false;
        std::deque<uint8_t> rx;          // what the host reads next
        int hiddenPolls = 0;             // queue polls that still show nothing (late data)
        int failOpens = 0;               // FT_Open calls still to refuse
    };

    struct Exchange {
        Bytes wire;    // the frame the host must write, stuffing and end byte included
        Bytes reply;   // queued on the command channel when it comes
        Bytes stream;  // queued on the unit's stream channel when it comes
    };

    FakeBus();
    ~FakeBus();
    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    static const d2xx::Table& Table();

    // Both channels of a unit, A then B, at the end of the list.
    void AddUnit(const std::string& serial, DWORD streamFlags = 0);
    Channel& AddChannel(const std::string& serial, const std::string& description, DWORD flags = 0);
    Channel& StreamOf(const std::string& serial) { return ChannelOf(serial, "Tarven Works A"); }
    Channel& CommandOf(const std::string& serial) { return ChannelOf(serial, "Tarven Works B"); }

    // With a script, every write must be its next exchange; without one
    // writes are only recorded.
    void Expect(Bytes wire, Bytes reply = {}, Bytes stream = {});
    bool ScriptDone() const { return script_.empty(); }

    std::deque<Channel> channels;        // stable addresses: a handle is a Channel*
    std::vector<Bytes> writes;           // every frame written, in order
    std::vector<std::string> calls;      // setup, open, close, purge and cycle calls, in order
    uint8_t userArea[16] = {};
    DWORD userAreaCount = 16;            // bytes FT_EE_UARead delivers

private:
    friend struct FakeEntries;
    Channel& ChannelOf(const std::string& serial, const char* description);
    std::deque<Exchange> script_;
    bool scripted_ = false;
};

}  // namespace qor::test

#endif
