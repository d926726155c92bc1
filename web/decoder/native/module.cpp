// The decoders as one WebAssembly module without imports: a few functions in plain C over the module's own
// memory.
#include <cstdint>
#include <cstdlib>
#include <new>
#include <span>

#include "kelt4/decoder.h"
#include "kelt4/kernels/framedecoder.h"
#include "kelt4/kernels/portable.h"
#include "keltlegacy/decoder.h"

// Allocation without the library's words of farewell, which would bring in its output functions. A request
// that isToBeHad() did not foresee ends the instance; the script makes a new one.
void* operator new(size_t size) {
    void* const block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr) __builtin_trap();
    return block;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, size_t) noexcept {
    std::free(block);
}

namespace dvq::kelt4 {

/// The one kernel of this build; it decodes only.
const Kernel& activeKernel() {
    using kernels::Portable;
    static constexpr Kernel kKernel{"wasm", nullptr, kernels::FrameDecoder<Portable>::decode};
    return kKernel;
}

}  // namespace dvq::kelt4

namespace {

/// What became of a payload, as the script reads it: 32-bit words in this order.
struct Result {
    uint32_t state;   ///< State, below
    uint32_t coding;  ///< 0 none, 1 stream ("KT41"), 2 thumbnail ("KT10")
    uint32_t width;
    uint32_t height;
    uint32_t frameWidth;
    uint32_t frameHeight;
    uint32_t reduce;
    uint32_t levels;
    uint32_t bytesPerPixel;
    uint32_t bitsUsed;
    uint32_t bytesUsed;
    uint32_t pixels;  ///< address, valid until the next call
    uint32_t size;    ///< bytes there
};

enum State : uint32_t { kExact, kPart, kDamaged, kNotAPayload, kUnsupported, kTooLarge, kNoMemory };

Result s_result;

// Made at the first call and never destroyed: a module without an entry has nobody who would run
// constructors.
dvq::kelt4::DecodedFrame& frameOfLastCall() {
    static auto* frame = new dvq::kelt4::DecodedFrame;
    return *frame;
}

keltlegacy::Picture& pictureOfLastCall() {
    static auto* picture = new keltlegacy::Picture;
    return *picture;
}

uint32_t addressOf(const void* pointer) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

/// Whether so much memory can be had in one piece: what is asked for piece by piece afterwards ends the
/// module when it cannot be had.
bool isToBeHad(uint64_t bytes) {
    if (bytes > uint64_t{0xF0000000}) return false;
    void* const block = std::malloc(static_cast<size_t>(bytes));
    std::free(block);
    return block != nullptr;
}

State stateOf(dvq::kelt4::DecodeStatus status) {
    using dvq::kelt4::DecodeStatus;
    switch (status) {
        case DecodeStatus::kComplete:
            return kExact;
        case DecodeStatus::kTruncated:
            return kPart;
        case DecodeStatus::kDamaged:
            return kDamaged;
        case DecodeStatus::kNotAPayload:
            return kNotAPayload;
        case DecodeStatus::kUnsupported:
            return kUnsupported;
        case DecodeStatus::kTooLarge:
            break;
    }
    return kTooLarge;
}

State decodeStream(std::span<const uint8_t> payload, int reduce, uint32_t maxSamples) {
    using namespace dvq::kelt4;
    const CKeltHeader header(payload.data());
    const uint64_t samples =
        (uint64_t{static_cast<uint32_t>(header.width())} * static_cast<uint32_t>(header.height()) *
         static_cast<uint32_t>(header.components())) >>
        (2 * reduce);
    // The pixels, and the rows of all levels.
    const uint64_t needed = 2 * samples + 128 * uint64_t{static_cast<uint32_t>(header.width())} + (3 << 19);
    if (samples <= maxSamples && !isToBeHad(needed)) return kNoMemory;
    DecodedFrame& frame = frameOfLastCall();
    frame = decode(payload, {.maxSamples = maxSamples, .reduce = reduce});
    s_result.frameWidth = static_cast<uint32_t>(header.width());
    s_result.frameHeight = static_cast<uint32_t>(header.height());
    s_result.width = static_cast<uint32_t>(frame.width);
    s_result.height = static_cast<uint32_t>(frame.height);
    s_result.reduce = static_cast<uint32_t>(frame.reduce);
    s_result.levels = static_cast<uint32_t>(frame.info.levels);
    s_result.bytesPerPixel = static_cast<uint32_t>(header.bytesPerPixel());
    s_result.bitsUsed = static_cast<uint32_t>(header.bitsUsed());
    s_result.bytesUsed = static_cast<uint32_t>(CKeltHeader::kSize + (frame.info.bitsRead + 7) / 8);
    s_result.pixels = addressOf(frame.pixels.data());
    s_result.size = static_cast<uint32_t>(frame.pixels.size());
    return stateOf(frame.info.status);
}

State decodeThumbnail(std::span<const uint8_t> payload, uint32_t maxSamples) {
    constexpr uint64_t kHeaderSize = 10;
    const uint64_t pixels = uint64_t{payload[6] | payload[7] * 256U} * (payload[8] | payload[9] * 256U);
    if (pixels <= maxSamples && !isToBeHad(48 * pixels + (1 << 20))) return kNoMemory;
    keltlegacy::Picture& picture = pictureOfLastCall();
    switch (keltlegacy::decode(payload, picture, maxSamples)) {
        case keltlegacy::DecodeStatus::Ok:
            break;
        case keltlegacy::DecodeStatus::NotLegacy:
            return kNotAPayload;
        case keltlegacy::DecodeStatus::BadPixelFormat:
        case keltlegacy::DecodeStatus::NoPixels:
            return kUnsupported;
        case keltlegacy::DecodeStatus::TooLarge:
            return kTooLarge;
        case keltlegacy::DecodeStatus::Damaged:
            return kDamaged;
    }
    s_result.width = s_result.frameWidth = static_cast<uint32_t>(picture.width);
    s_result.height = s_result.frameHeight = static_cast<uint32_t>(picture.height);
    s_result.levels = static_cast<uint32_t>(picture.levels);
    s_result.bytesPerPixel = static_cast<uint32_t>(picture.bytesPerPixel);
    s_result.bitsUsed = static_cast<uint32_t>(picture.bitsUsed);
    s_result.bytesUsed = static_cast<uint32_t>(kHeaderSize + (picture.bitsRead + 7) / 8);
    s_result.pixels = addressOf(picture.samples.data());
    s_result.size = static_cast<uint32_t>(picture.samples.size());
    return picture.complete ? kExact : kPart;
}

}  // namespace

extern "C" {

[[clang::export_name("allocate")]] void* allocateBytes(uint32_t size) {
    return std::malloc(size);
}

[[clang::export_name("release")]] void releaseBytes(void* block) {
    std::free(block);
}

/// Decodes a payload of either coder or a prefix of one, `reduce` halvings smaller where that is possible.
/// Returns the address of a Result, valid until the next call.
[[clang::export_name("decode")]] const Result* decodePayload(const uint8_t* bytes, uint32_t size, int reduce,
                                                             uint32_t maxSamples) {
    s_result = {};
    frameOfLastCall() = {};
    pictureOfLastCall() = {};
    const std::span<const uint8_t> payload(bytes, size);
    s_result.state = kNotAPayload;
    if (size >= 16 && bytes[0] == 'K' && bytes[1] == 'T' && bytes[2] == '4' && bytes[3] == '1') {
        s_result.coding = 1;
        s_result.state = decodeStream(payload, reduce < 0 ? 0 : reduce > 8 ? 8 : reduce, maxSamples);
    } else if (size >= 10 && bytes[0] == 'K' && bytes[1] == 'T' && bytes[2] == '1' && bytes[3] == '0') {
        s_result.coding = 2;
        s_result.state = decodeThumbnail(payload, maxSamples);
    }
    return &s_result;
}

/// Gives back the pixels of the last call.
[[clang::export_name("forget")]] void forget() {
    frameOfLastCall() = {};
    pictureOfLastCall() = {};
}
}
