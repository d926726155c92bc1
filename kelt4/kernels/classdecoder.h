#pragma once

#include <cstdint>

#include "kelt4/kernel_jobs.h"
#include "kelt4/kernels/attributes.h"
#include "kelt4/kernels/eventreader.h"

namespace dvq::kelt4::kernels {

/// Puts the coefficients of a class together, a group of words at a time and all planes of it at once, so
/// that nothing but the group's bits exists beside stream and values. The mirror of ClassEncoder.
template <class Arch, class T>
class ClassDecoder {
public:
    /// Decodes the next group of the class into its values, up to the end of a word.
    static void decode(const BitSpan& bits, CodedClass& coded, int planes, T* values) {
        Group group(coded);
        for (int p = planes - 1; p >= 0; --p)
            group.addPlane(bits, coded, p);
        if (coded.unrefined >= 0 && group.planesUsed > 0) group.fillMiddles(coded);
        group.putTogether(values);
        coded.done += group.size;
        if (coded.done < coded.size) return;
        for (int p = planes - 1; p >= 0; --p) {
            if (coded.planes[p].hasSignificance) EventReader<Arch>(bits, coded.planes[p].events).close();
        }
    }

private:
    /// Bit columns of a word's coefficients, the lowest plane first.
    static constexpr uint64_t kColumns = 8 * sizeof(T);

    struct Group {
        uint64_t size;
        uint64_t words;
        /// The coefficients of the last word that exist.
        uint64_t lastWord;
        /// Coefficients that are not significant yet.
        uint64_t candidates;
        /// From the highest plane that has a 1 down.
        int planesUsed = 0;
        uint64_t significant[kGroupWords];
        uint64_t signs[kGroupWords];
        /// Those that the missing refinement chunk is about, if any.
        bool anyUnrefined = false;
        uint64_t unrefined[kGroupWords];
        uint64_t columns[kGroupWords * kColumns];
        CandidateBits events;
        uint64_t refinement[kGroupWords + 2];

        explicit Group(const CodedClass& coded) {
            const uint64_t left = coded.size - coded.done;
            size = left < 64 * kGroupWords ? left : 64 * kGroupWords;
            words = (size + 63) / 64;
            lastWord = ~uint64_t{0} >> (64 * words - size);
            candidates = size;
        }

        void addPlane(const BitSpan& bits, CodedClass& coded, int p) {
            CodedPlane& plane = coded.planes[p];
            const uint64_t refined = size - candidates;
            if (p == coded.unrefined && refined > 0) {
                anyUnrefined = true;
                __builtin_memcpy(unrefined, significant, words * sizeof(uint64_t));
            }
            const bool refines = plane.hasRefinement && refined > 0;
            bool signifies = plane.hasSignificance && candidates > 0;
            if (signifies) {
                EventReader<Arch> reader(bits, plane.events);
                signifies = !reader.skip(candidates);
                if (signifies) reader.decode(candidates, events);
            }
            if (planesUsed == 0) {
                if (!signifies) return;
                begin(p);
            }
            const uint8_t* from = nullptr;
            if (refines) {
                from = refinementBytes(bits, plane.refinement);
                if (!signifies)
                    addBits<true, false>(p, from, plane.refinement % 8);
                else
                    addBits<true, true>(p, from, plane.refinement % 8);
                plane.refinement += refined;
            } else if (signifies) {
                addBits<false, true>(p, from, 0);
            }
        }

        /// The first plane with a 1 begins the columns.
        void begin(int p) {
            planesUsed = p + 1;
            __builtin_memset(significant, 0, words * sizeof(uint64_t));
            __builtin_memset(signs, 0, words * sizeof(uint64_t));
            __builtin_memset(columns, 0, words * kColumns * sizeof(uint64_t));
        }

        /// The bytes from the one with that bit on, as many as a group's refinement may read: the stream's
        /// own, or where it ends a copy with zeros after it.
        const uint8_t* refinementBytes(const BitSpan& bits, uint64_t position) {
            const uint64_t first = position / 8, end = bits.end / 8;
            if (first + sizeof(refinement) <= end) return bits.bytes + first;
            __builtin_memset(refinement, 0, sizeof(refinement));
            if (first < end) __builtin_memcpy(refinement, bits.bytes + first, end - first);
            return reinterpret_cast<const uint8_t*>(refinement);
        }

        /// Takes the bits of a plane to their coefficients.
        template <bool kRefine, bool kSignify>
        void addBits(int p, const uint8_t* from, uint64_t fromPlace) {
            uint64_t place = 0;
            uint64_t total = 0;
            for (uint64_t w = 0; w < words; ++w) {
                const uint64_t before = significant[w];
                uint64_t column = 0;
                if constexpr (kRefine) {
                    column = Arch::deposit(bitsAt(from, fromPlace), before);
                    fromPlace += count(before);
                }
                if constexpr (kSignify) {
                    const uint64_t here = ~before & (w + 1 == words ? lastWord : ~uint64_t{0});
                    uint64_t ones = CandidateBits::at(events.ones, place);
                    uint64_t negative = CandidateBits::at(events.signs, place);
                    place += count(here);
                    Arch::deposit(ones, negative, here);
                    total += count(ones);
                    significant[w] = before | ones;
                    signs[w] |= negative;
                    column |= ones;
                }
                columns[w * kColumns + static_cast<uint64_t>(p)] = column;
            }
            candidates -= total;
        }

        /// Sets the highest unknown bit of every significant coefficient.
        void fillMiddles(CodedClass& coded) {
            const int plane = coded.unrefined;
            for (uint64_t w = 0; w < words; ++w) {
                uint64_t* const column = columns + w * kColumns;
                const uint64_t refined = anyUnrefined ? unrefined[w] : 0;
                // Below the plane a column holds only the highest bits of coefficients.
                for (int p = 1; p <= plane; ++p)
                    column[p - 1] |= column[p] & ~refined;
                uint64_t unknown = refined;
                const uint64_t known =
                    count(refined) < coded.partlyRefined ? count(refined) : coded.partlyRefined;
                coded.partlyRefined -= known;
                if (known == count(refined)) unknown = 0;
                for (uint64_t i = 0; unknown != 0 && i < known; ++i)
                    unknown &= unknown - 1;
                column[plane] |= unknown;
                if (plane > 0) column[plane - 1] |= refined & ~unknown;
            }
        }

        void putTogether(T* values) const {
            if (planesUsed == 0) {
                __builtin_memset(values, 0, 64 * words * sizeof(T));
                return;
            }
            for (uint64_t w = 0; w < words; ++w)
                Arch::fromColumns(columns + w * kColumns, planesUsed, signs[w], values + 64 * w);
        }
    };

    KELT_INLINE static uint64_t count(uint64_t bits) {
        return static_cast<uint64_t>(__builtin_popcountll(bits));
    }
    /// 64 bits of bytes from the given bit on.
    KELT_INLINE static uint64_t bitsAt(const uint8_t* bytes, uint64_t place) {
        uint64_t value;
        __builtin_memcpy(&value, bytes + place / 8, sizeof(value));
        return value >> (place % 8) | static_cast<uint64_t>(bytes[place / 8 + 8]) << 1 << (63 - place % 8);
    }
};

}  // namespace dvq::kelt4::kernels
