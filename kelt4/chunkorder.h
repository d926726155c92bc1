#pragma once

#include "kelt4/chunkstore.h"

namespace dvq::kelt4 {

/// A chunk in the order of the stream.
struct ChunkChoice {
    int component;
    int levelClass;
    int plane;
    bool refinement;
};

/// Orders the chunks of a frame by estimated benefit per bit. Scores are kept and only that of the class just
/// taken is computed again; the powers are a table of the successive products.
class ChunkOrder {
public:
    ChunkOrder(const ChunkStore& chunks, int components, int levels, int topPlane);

    /// Gives the next chunk; false when none is left.
    bool next(ChunkChoice& choice);

private:
    static constexpr int kSteps = kFastPlanes + kMaxLevels;

    struct Candidate {
        int significance;
        int refinement;
        double significanceScore;
        double refinementScore;
    };

    void score(int component, int levelClass);

    const ChunkStore& m_chunks;
    int m_components;
    int m_levels;
    /// Factors of significance and refinement chunks by step, for the first component and for the others.
    double m_significanceFactor[2][kSteps];
    double m_refinementFactor[2][kSteps];
    Candidate m_candidates[kMaxComponents][kMaxClasses];
};

}  // namespace dvq::kelt4
