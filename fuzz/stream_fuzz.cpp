// Random sequences of writes, reads, seeks, flushes and reopenings on one
// file or memory stream, checked byte for byte against a model that is only
// the bytes the stream should hold and its position. The first byte chooses
// the stream (bit 0: file) and a memory stream's growth step (bits 1-2);
// then each operation takes a byte and its parameters.
//
// The model: writes land at the position and extend the contents (a file's
// gap reads as zeros; a memory block's gap reads as whatever the block
// holds, which the model keeps); reads give the contents from the position;
// a seek is refused before the start, and, on a stream opened for reading
// only, past the size the stream measured at open (a file's length; for a
// memory stream one less than its contents' length). Closing a memory stream
// opened for writing appends the 0xFF end mark; opening the block again
// drops its trailing zeros and that mark. A refused seek leaves the stream's
// error flag set, after which a stream may drop writes by design, so the
// comparisons stop there; the sequence still runs under the sanitizers.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "fuzz/host.h"
#include "fuzz/streams.h"

using namespace fuzzstreams;

namespace {

constexpr int64_t kFarthest = 1 << 20;  // seeks beyond this are not sent
const int32_t kGrowth[] = {4096, 64, 513, 4096};

struct Model {
    bool onFile;
    Bytes bytes;  // file: its contents; memory: the block's bytes (zeros beyond)
    int64_t length = 0;
    int64_t position = 0;
    uint32_t mode = TOLVA_STREAM_OUTPUT;
    int64_t sizeAtOpen = 0;
    bool poisoned = false;

    bool writable() const { return (mode & (TOLVA_STREAM_WRITE | TOLVA_STREAM_UPDATE)) != 0; }
    void put(int64_t i, uint8_t v) {
        if (i >= static_cast<int64_t>(bytes.size())) bytes.resize(static_cast<size_t>(i) + 1, 0);
        bytes[static_cast<size_t>(i)] = v;
    }
};

struct Harness {
    Model m;
    TempFile file;
    MemoryBlock block;
    HGLOBAL s = 0;

    void open(uint32_t mode) {
        m.mode = mode;
        m.position = 0;
        if (m.onFile) {
            s = zunOpen(file.path, nullptr, mode);
            if (mode & TOLVA_STREAM_CREATE) m.bytes.clear();
            m.length = static_cast<int64_t>(m.bytes.size());
            m.sizeAtOpen = m.length;
            return;
        }
        if (mode & TOLVA_STREAM_CREATE) {
            s = block.create();
            m.length = 0;
            m.sizeAtOpen = -1;
            return;
        }
        s = block.reopen(mode);
        int64_t n = static_cast<int64_t>(m.bytes.size());
        while (n > 0 && m.bytes[static_cast<size_t>(n) - 1] == 0) --n;
        m.length = n > 0 ? n - 1 : 0;
        m.sizeAtOpen = m.length - 1;
    }

    void close() {
        int32_t result = zunClose(s);
        s = 0;
        if (!m.poisoned) expect(result == 0, "close");
        if (!m.onFile && m.writable()) m.put(m.length, 0xFF);
    }

    void write(const Bytes &data) {
        if (!m.writable()) return;
        auto n = static_cast<int32_t>(data.size());
        int32_t got = zunWrite(s, data.data(), n);
        if (m.poisoned) return;
        expect(got == n, "write count");
        // Whole blocks at a time: this runs with coverage on every line. An
        // empty write extends nothing, not even past a seek beyond the end.
        if (n > 0) {
            if (m.position + n > static_cast<int64_t>(m.bytes.size()))
                m.bytes.resize(static_cast<size_t>(m.position + n), 0);
            std::memcpy(m.bytes.data() + m.position, data.data(), static_cast<size_t>(n));
        }
        m.position += n;
        if (n > 0 && m.position > m.length) m.length = m.position;
    }

    void read(int32_t n) {
        Bytes got(static_cast<size_t>(n));
        int32_t r = zunRead(s, got.data(), n);
        if (m.poisoned) return;
        int64_t left = m.length - m.position;
        int64_t want = left <= 0 ? 0 : left < n ? left : n;
        expect(r == want, "read count");
        if (want > 0) {
            // Bytes the model holds, then zeros (a file's gap past its last write).
            int64_t held = static_cast<int64_t>(m.bytes.size()) - m.position;
            held = held < 0 ? 0 : held > want ? want : held;
            expect((held == 0 || std::memcmp(got.data(), m.bytes.data() + m.position,
                                             static_cast<size_t>(held)) == 0) &&
                       std::all_of(got.begin() + held, got.begin() + want,
                                   [](uint8_t b) { return b == 0; }),
                   "read bytes");
        }
        m.position += want;
    }

    void seek(int32_t offset, int32_t origin) {
        int64_t target = origin == 0   ? offset
                         : origin == 1 ? m.position + offset
                                       : m.length + offset;
        if (target > kFarthest) return;
        int32_t got = zunSeek(s, offset, origin);
        if (m.poisoned) return;
        bool refused = target < 0;
        if (origin != 2 && !m.writable() && target > m.sizeAtOpen) refused = true;
        if (origin == 1 && offset == 0) refused = false;  // a tell never fails
        if (refused) {
            expect(got == -1, "refused seek");
            m.poisoned = true;
            return;
        }
        expect(got == target, "seek result");
        m.position = target;
    }

    // A file stream's flush writes its whole window back and moves on to the
    // window's end, as the next fill would; callers seek back where they were.
    // A clean window is left alone, so a position sought past the end stays.
    void flush() {
        int32_t flushed = FlushZunIO(s);
        if (m.poisoned) return;
        expect(flushed >= 0, "flush");
        if (!m.onFile) return;
        int32_t at = zunSeek(s, 0, 1);
        expect(at >= m.position && at <= std::max(m.length, m.position), "position after a flush");
        if (at != m.position)
            expect(zunSeek(s, static_cast<int32_t>(m.position), 0) == m.position,
                   "seek back after a flush");
    }

    void tell() {
        int32_t got = zunSeek(s, 0, 1);
        if (!m.poisoned) expect(got == m.position, "tell");
    }

    void reopen(uint8_t choice) {
        close();
        static const uint32_t kModes[] = {0, TOLVA_STREAM_UPDATE, TOLVA_STREAM_OUTPUT};
        uint32_t mode = kModes[choice % 3];
        // A memory block is created only once: re-creating it over old
        // contents leaves bytes the writer never placed, by design.
        if (!m.onFile && (mode & TOLVA_STREAM_CREATE)) mode = TOLVA_STREAM_UPDATE;
        open(mode);
    }

    // The end: what is on disk, or in the block once opened again.
    void verify() {
        close();
        if (m.poisoned) return;
        if (m.onFile) {
            expect(read_whole(file.path) == m.bytes, "file contents");
            return;
        }
        s = block.reopen(0);
        int64_t n = static_cast<int64_t>(m.bytes.size());
        while (n > 0 && m.bytes[static_cast<size_t>(n) - 1] == 0) --n;
        Bytes want(m.bytes.begin(), m.bytes.begin() + (n > 0 ? n - 1 : 0));
        Bytes got(want.size() + 1);
        expect(zunRead(s, got.data(), static_cast<int32_t>(got.size())) ==
                   static_cast<int32_t>(want.size()),
               "memory contents length");
        got.pop_back();
        expect(got == want, "memory contents");
        zunClose(s);
        s = 0;
    }
};

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    uint32_t x = seed * 2654435761u + 1;
    for (uint8_t &v : b) {
        x = x * 1103515245u + 12345u;
        v = static_cast<uint8_t>(x >> 16);
    }
    return b;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    Harness h;
    h.m.onFile = data[0] & 1;
    if (h.m.onFile && !h.file.made) return 0;
    h.block.descriptor[2] = kGrowth[(data[0] >> 1) & 3];
    h.open(TOLVA_STREAM_OUTPUT);
    if (h.s == 0) return 0;
    fuzzhost::Reader in{data + 1, size - 1, 0};
    // Parameters are taken one statement at a time: the order in which a
    // compiler evaluates function arguments is its own.
    auto u16 = [&in] {
        uint32_t low = in.byte();
        return low | uint32_t{in.byte()} << 8;
    };
    for (int step = 0; step < 48 && in.n > 0; ++step) {
        uint8_t op = in.byte();
        switch (op % 8) {
        case 0:
        case 1: {
            size_t n = op % 8 == 0 ? u16() % 30001 : in.byte() % 17;
            h.write(pattern(n, in.byte()));
            break;
        }
        case 2:
            h.write(Bytes{in.byte()});
            break;
        case 3:
            h.read(static_cast<int32_t>(u16() % 30001));
            break;
        case 4:
            h.read(in.byte() % 17);
            break;
        case 5: {
            uint8_t how = in.byte();
            auto offset = static_cast<int16_t>(u16());
            h.seek(offset * ((how & 4) ? 3 : 1), how % 3);
            break;
        }
        case 6:
            if (op & 0x80) {
                h.flush();
            } else {
                h.tell();
            }
            break;
        default:
            h.reopen(in.byte());
            break;
        }
        if (h.s == 0) return 0;
        h.tell();
    }
    h.verify();
    return 0;
}
