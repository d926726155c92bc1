#pragma once

#include <bit>
#include <memory>

#include "kelt4/bitchunkwriter.h"

namespace dvq::kelt4 {

/// A run of zeros closed by a 1, as bits to append least significant first.
struct RunCode {
    uint64_t bits;
    unsigned length;
};

/// Code of a run of r zeros: r = 0 is 1; otherwise with k = floor(log2(r)), 1 + k zeros, a 1 and the k low
/// bits of r.
inline RunCode runCode(uint64_t run) {
    if (run == 0) return {1, 1};
    const unsigned k = static_cast<unsigned>(std::bit_width(run)) - 1;
    return {uint64_t{1} << (1 + k) | (run ^ uint64_t{1} << k) << (2 + k), 2 + 2 * k};
}

/// A bit coder in front of a raw writer.
class CBitEncoder : public CBitCoder {
public:
    explicit CBitEncoder(CBitWriter* output) : m_output(output) {}

    virtual const char* getType() const { return m_output->getType(); }
    virtual int getMode() const { return 'w'; }
    /// Bits given to the coder so far, signs not counted.
    virtual uint64_t getTotal() const { return m_run + m_coded; }
    /// Bits that the coder has written.
    virtual uint64_t getStoredTotal() const { return m_output->getTotal(); }

    void addZero() { ++m_run; }
    /// Codes a 1, followed in the output by the sign.
    void addOne(bool negative) {
        m_coded += m_run + 1;
        writeRun();
        m_output->putBit(negative);
    }
    /// Writes the pending run, unless nothing has been written yet: a chunk without any 1 stays empty.
    void close() {
        if (m_output->getTotal() > 0) writeRun();
    }

private:
    void writeRun() {
        const RunCode code = runCode(m_run);
        m_output->putBits(code.bits, code.length);
        m_run = 0;
    }

    CBitWriter* m_output;
    uint64_t m_run = 0;
    uint64_t m_coded = 0;
};

/// An encoder that owns the writer of its chunk.
class CBitChunkEncoder : public CBitEncoder {
public:
    CBitChunkEncoder() : CBitChunkEncoder(std::make_unique<CBitChunkWriter>()) {}
    CBitChunkWriter& chunk() { return *m_owned; }

private:
    explicit CBitChunkEncoder(std::unique_ptr<CBitChunkWriter> writer)
        : CBitEncoder(writer.get()), m_owned(std::move(writer)) {}

    std::unique_ptr<CBitChunkWriter> m_owned;
};

}  // namespace dvq::kelt4
