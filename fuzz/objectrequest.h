#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "fuzz/memoryfolder.h"
#include "fuzz/servantexchange.h"
#include "vintakd/service/VintakRequest.h"

/// What a target's input asks a servant to do with an object, in its first bytes:
///
///     flags    1 verbose, 2 dump only, 4 escape, 8 narrow, 16 no cache, 32 private elements stay,
///              64 the object is sent twice as two files (a query only)
///     mask     the write mask
///     frame    int16, the one frame to convert
///     tags     number of tags, 0 to 7; of them read once: its upper bits
///     then the tags, 4 bytes each, and the object.
/// A request whose paths and files are not filled in.
struct ObjectRequest : VintakRequest {
    ObjectRequest(const uint8_t* data, size_t size);

    bool includePrivate, twice;
    std::span<const uint8_t> object;

    size_t fileCount() const { return twice && !tags.empty() ? 2 : 1; }
};

/// Gives objects to a servant and keeps what it leaves until the next one.
class ObjectRoad {
public:
    ObjectRoad();

    /// The servant's final answer.
    std::string run(const ObjectRequest& request);

    const MemoryFolder& output() const { return m_output; }
    const MemoryFolder& cache() const { return m_cache; }
    /// The path under which the servant reads the object (of two: the first).
    std::string inputPath() const { return m_input / "object.dcm"; }

private:
    ServantExchange m_servant;
    MemoryFolder m_input, m_output, m_cache, m_configuration;
};

/// Requires that a refusal names the file and says why.
void requireReason(const std::string& answer, const ObjectRoad& road);
/// Whether the answer is an error.
bool isRefusal(const std::string& answer);
