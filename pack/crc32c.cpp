#include "pack/crc32c.h"

#include <nmmintrin.h>

#include <array>
#include <cstring>

namespace pack {
namespace {

constexpr uint32_t kPolynomial = 0x82F63B78;  // bits turned round

constexpr std::array<uint32_t, 256> makeTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t sum = i;
        for (int bit = 0; bit < 8; ++bit)
            sum = sum >> 1 ^ ((sum & 1) != 0 ? kPolynomial : 0);
        table[i] = sum;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kTable = makeTable();

uint32_t plain(std::span<const uint8_t> bytes, uint32_t sum) {
    for (const uint8_t byte : bytes)
        sum = sum >> 8 ^ kTable[(sum ^ byte) & 0xFF];
    return sum;
}

/// The instruction gives its result three cycles after it began, and one can begin in each: three runs of
/// bytes are summed side by side, as long as there are so many.
constexpr size_t kLanes = 3;
constexpr size_t kLane = 2048;  // bytes

/// What becomes of a sum by as many zeros as a lane has bytes: of each byte of the sum, its part.
using Shift = std::array<std::array<uint32_t, 256>, sizeof(uint32_t)>;

constexpr Shift makeShift() {
    std::array<uint32_t, 32> ofBit{};
    for (size_t bit = 0; bit < ofBit.size(); ++bit) {
        uint32_t sum = uint32_t{1} << bit;
        for (size_t i = 0; i < kLane; ++i)
            sum = sum >> 8 ^ kTable[sum & 0xFF];
        ofBit[bit] = sum;
    }
    Shift shift{};
    for (size_t byte = 0; byte < shift.size(); ++byte)
        for (size_t value = 0; value < shift[byte].size(); ++value)
            for (size_t bit = 0; bit < 8; ++bit)
                if ((value >> bit & 1) != 0) shift[byte][value] ^= ofBit[8 * byte + bit];
    return shift;
}
constexpr Shift kShift = makeShift();

uint32_t shifted(uint32_t sum) {
    return kShift[0][sum & 0xFF] ^ kShift[1][sum >> 8 & 0xFF] ^ kShift[2][sum >> 16 & 0xFF] ^
           kShift[3][sum >> 24];
}

uint64_t wordAt(std::span<const uint8_t> bytes, size_t offset) {
    uint64_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

__attribute__((target("sse4.2"))) uint32_t byInstruction(std::span<const uint8_t> bytes, uint32_t before) {
    uint64_t sum = before;
    while (bytes.size() >= kLanes * kLane) {
        uint64_t second = 0, third = 0;
        for (size_t i = 0; i < kLane; i += sizeof(uint64_t)) {
            sum = _mm_crc32_u64(sum, wordAt(bytes, i));
            second = _mm_crc32_u64(second, wordAt(bytes, kLane + i));
            third = _mm_crc32_u64(third, wordAt(bytes, 2 * kLane + i));
        }
        sum = shifted(static_cast<uint32_t>(sum)) ^ second;
        sum = shifted(static_cast<uint32_t>(sum)) ^ third;
        bytes = bytes.subspan(kLanes * kLane);
    }
    for (; bytes.size() >= sizeof(uint64_t); bytes = bytes.subspan(sizeof(uint64_t)))
        sum = _mm_crc32_u64(sum, wordAt(bytes, 0));
    auto result = static_cast<uint32_t>(sum);
    for (const uint8_t byte : bytes)
        result = _mm_crc32_u8(result, byte);
    return result;
}

}  // namespace

uint32_t crc32c(std::span<const uint8_t> bytes, uint32_t before) {
    static const bool s_hasInstruction = __builtin_cpu_supports("sse4.2") != 0;
    return ~(s_hasInstruction ? byInstruction(bytes, ~before) : plain(bytes, ~before));
}

}  // namespace pack
