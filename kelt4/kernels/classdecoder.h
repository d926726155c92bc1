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
    /// Decodes the next groups of the class into its values, up to the end of a word.
    static void decode(const BitSpan& bits, CodedClass& coded, int planes, T* values) {
        Group first(bits, coded, coded.done), second(bits, coded, coded.done + first.size);
        // The second group is a plane behind, so that they read two chunks, and each knows its candidates.
        for (int p = planes; p >= 0; --p) {
            const bool firstHas = p > 0 && first.meet(p - 1), secondHas = p < planes && second.meet(p);
            if (Arch::kTwoAtOnce && firstHas && secondHas) {
                EventReader<Arch> a = first.reader(p - 1), b = second.reader(p);
                EventReader<Arch>::decode(a, first.candidates, b, second.candidates);
            } else {
                if (firstHas) first.reader(p - 1).decode(first.candidates);
                if (secondHas) second.reader(p).decode(second.candidates);
            }
            if (p > 0) first.addPlane(p - 1, firstHas);
            if (p < planes) second.addPlane(p, secondHas);
        }
        first.putTogether(values);
        second.putTogether(values + first.size);
        coded.done += first.size + second.size;
        if (coded.done < coded.size) return;
        for (int p = planes - 1; p >= 0; --p) {
            if (coded.planes[p].hasSignificance) first.reader(p).close();
        }
    }

private:
    /// Bit columns of a word's coefficients, the lowest plane first.
    static constexpr uint64_t kColumns = 8 * sizeof(T);

    /// Words of coefficients that are next, of which the higher planes are known.
    struct Group {
        const BitSpan& bits;
        CodedClass& coded;
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

        Group(const BitSpan& stream, CodedClass& codedClass, uint64_t begin)
            : bits(stream), coded(codedClass) {
            const uint64_t left = coded.size - begin;
            size = left < 64 * kGroupWords ? left : 64 * kGroupWords;
            words = (size + 63) / 64;
            lastWord = ~uint64_t{0} >> (64 * words - size);
            candidates = size;
        }

        EventReader<Arch> reader(int p) { return {bits, coded.planes[p].events, events}; }

        /// Whether candidates become significant in a plane.
        bool meet(int p) {
            return coded.planes[p].hasSignificance && candidates > 0 && !reader(p).skip(candidates);
        }

        /// Takes up a plane when its events are there.
        void addPlane(int p, bool signifies) {
            CodedPlane& plane = coded.planes[p];
            const uint64_t refined = size - candidates;
            if (p == coded.unrefined && refined > 0) {
                anyUnrefined = true;
                __builtin_memcpy(unrefined, significant, words * sizeof(uint64_t));
            }
            if (planesUsed == 0) {
                if (!signifies) return;
                begin(p);
            }
            if (plane.hasRefinement && refined > 0) {
                const uint8_t* const from = refinementBytes(plane.refinement);
                if (signifies)
                    addBits<true, true>(p, from, plane.refinement % 8);
                else
                    addBits<true, false>(p, from, plane.refinement % 8);
                plane.refinement += refined;
            } else if (signifies) {
                addBits<false, true>(p, nullptr, 0);
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
        const uint8_t* refinementBytes(uint64_t position) {
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
                    const uint64_t candidatesHere = count(here);
                    place += candidatesHere;
                    // The last bit of the shift first: of no candidates there are none.
                    if (Arch::kFastDeposit || (candidatesHere != 0 && ones << (64 - candidatesHere) != 0)) {
                        Arch::deposit(ones, negative, here);
                        total += count(ones);
                        significant[w] = before | ones;
                        signs[w] |= negative;
                        column |= ones;
                    }
                }
                columns[w * kColumns + static_cast<uint64_t>(p)] = column;
            }
            candidates -= total;
        }

        /// Sets the highest unknown bit of every significant coefficient.
        void fillMiddles() {
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

        void putTogether(T* values) {
            if (planesUsed == 0) {
                __builtin_memset(values, 0, 64 * words * sizeof(T));
                return;
            }
            if (coded.unrefined >= 0) fillMiddles();
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
