#pragma once

#include <cstdint>

/// Limits on what an object may ask for, all of them. Each is in the message of the refusal that it causes
/// (docs/security.md lists them), and a change here is all that it takes to change one.
namespace objectlimits {

/// Sequences within sequences. The toolkit's parser calls itself for every one of them.
inline constexpr int kNestingDepth = 64;

/// Elements, items and fragments of a file together: some 200 bytes of memory each once it is parsed. To
/// convert twice as many took 13 of the 20 seconds that a client waits.
inline constexpr uint64_t kElements = uint64_t{2} << 20;

/// Elements and private blocks that the toolkit passes by to put elements that come out of order into their
/// places, and to find out for each private element who reserved its block; plus a thousand for each element
/// out of order, about which it logs a line. It makes some 50 millions of these steps in a second.
inline constexpr uint64_t kSearchSteps = 100'000'000;

/// Bytes that a deflated object unpacks to. Its long values cannot stay in the file.
inline constexpr uint64_t kInflatedBytes = uint64_t{512} << 20;

/// Bytes that are read into memory as an object is loaded; long values that stay in the file do not count.
inline constexpr uint64_t kLoadedBytes = uint64_t{512} << 20;

/// Bytes of a file that is loaded with all its values, for a dump; its text is some three times as long.
inline constexpr uint64_t kDumpedFileBytes = uint64_t{256} << 20;

/// Bytes of stack that loading may use: a quarter of the usual stack, and far more than the nesting needs.
inline constexpr uint64_t kParsingStack = uint64_t{2} << 20;

/// Bytes of one frame, as decoded and as it is stored for the viewer.
inline constexpr uint64_t kFrameBytes = uint64_t{1} << 30;

/// Scans of a JPEG stream. Real progressive streams have some ten; each costs a pass over the frame.
inline constexpr unsigned kJpegScans = 100;

/// Bytes of text of a dump, and of all values of a query.
inline constexpr uint64_t kAnswerBytes = uint64_t{256} << 20;

/// Bytes of a binary value that is made into text. A larger one has no text in a dump.
inline constexpr uint32_t kBinaryValueBytes = 32u << 20;

}  // namespace objectlimits
