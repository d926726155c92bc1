#include "kelt4/chunkorder.h"

#include <algorithm>

namespace dvq::kelt4 {

namespace {

constexpr double kGain = 3.7;
/// Empty chunks cost next to nothing and tell much.
constexpr double kEmptyScore = 4.2e11;
/// Below every score there is.
constexpr double kNone = -1.0;

}  // namespace

ChunkOrder::ChunkOrder(const ChunkStore& chunks, int components, int levels, int topPlane)
    : m_chunks(chunks), m_components(components), m_levels(levels) {
    for (int other = 0; other < 2; ++other) {
        const double weight = other == 0 ? 1.0 : 0.2;
        double significance = 8.0 * weight;
        double refinement = weight;
        for (int step = 0; step < kSteps; ++step) {
            m_significanceFactor[other][step] = significance;
            m_refinementFactor[other][step] = refinement;
            significance *= kGain;
            refinement *= kGain;
        }
    }
    for (int c = 0; c < components; ++c) {
        for (int j = 0; j <= levels; ++j) {
            m_candidates[c][j] = {topPlane, topPlane - 1, kNone, kNone};
            score(c, j);
        }
    }
}

void ChunkOrder::score(int component, int levelClass) {
    Candidate& candidate = m_candidates[component][levelClass];
    const int other = component == 0 ? 0 : 1;
    candidate.significanceScore = kNone;
    if (const int p = candidate.significance; p >= 0) {
        const PlaneChunks& chunk = m_chunks.at(component, levelClass).planes[p];
        const auto count = static_cast<double>(chunk.significant);
        const auto bits = static_cast<double>(bitCount(chunk.significance));
        candidate.significanceScore =
            bits == 0 ? kEmptyScore : count * m_significanceFactor[other][p + levelClass] / (bits + 1);
    }
    candidate.refinementScore = kNone;
    if (const int q = candidate.refinement; q >= std::max(candidate.significance, 0)) {
        candidate.refinementScore = m_refinementFactor[other][q + levelClass];
    }
}

bool ChunkOrder::next(ChunkChoice& choice) {
    double best = kNone;
    for (int c = 0; c < m_components; ++c) {
        for (int j = 0; j <= m_levels; ++j) {
            const Candidate& candidate = m_candidates[c][j];
            if (candidate.significanceScore > best) {
                best = candidate.significanceScore;
                choice = {c, j, candidate.significance, false};
            }
            if (candidate.refinementScore > best) {
                best = candidate.refinementScore;
                choice = {c, j, candidate.refinement, true};
            }
        }
    }
    if (best == kNone) return false;
    Candidate& taken = m_candidates[choice.component][choice.levelClass];
    --(choice.refinement ? taken.refinement : taken.significance);
    score(choice.component, choice.levelClass);
    return true;
}

}  // namespace dvq::kelt4
