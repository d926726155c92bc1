#pragma once

#include <atomic>
#include <memory>

#include "kelt4/filter5_3.h"
#include "kelt4/iwaveletencoder.h"
#include "kelt4/wavelet.h"

namespace dvq::kelt4 {

/// The plain encoder, one coefficient and one bit at a time. It is the reference that the fast kernels are
/// compared with and is used where it is asked for by name (see kernel.h).
///
/// T is the coefficient type: 16 bits for 8-bit grey and RGB, 32 bits for 16-bit grey. All chunk state lies
/// in one working block that is allocated with the encoder.
template <class T, class Filter>
class CWaveletEncoder : public IWaveletEncoder, public CWavelet<T> {
public:
    static constexpr int kPlanes = 8 * sizeof(T);

    CWaveletEncoder(std::unique_ptr<CoefficientImage<T>> image, int levels);
    ~CWaveletEncoder() override;

    static void* operator new(size_t size) { return CAligned<8>::operator new(size); }
    static void operator delete(void* block) { CAligned<8>::operator delete(block); }

    void transform() override;
    void transformFrom(const void* src, int bytesPerPixel) override;
    int writeWavelet(CBitWriter& out, int rowLimit) override;
    const void* copyAndConvertFrom(const void* src, int bytesPerPixel) override;
    void stop() override { m_stop = true; }
    void kill() override {
        m_stop = true;
        m_kill = true;
    }

    /// Loads component planes of S (unless src is null) and transforms them, sub-bands interleaved in place.
    template <class S>
    void transformFromT_interleaved(const S* src);

    /// Highest significance plane of the frame; valid once coding has begun.
    int topPlane() const { return m_topPlane; }

private:
    struct WorkingBlock;

    template <class S>
    const S* copyInterleaved(const S* src);
    const unsigned char* convertColour(const unsigned char* src);
    void transformComponent(int component);

    void replaceByCodes();
    bool codeRows(int rowLimit);
    void codeRow(int component, int y);
    void codeCoefficient(int component, int levelClass, T code);
    uint64_t closeChunks();
    void writeStream(CBitWriter& out);
    int chooseChunk() const;
    void writeChunk(CBitWriter& out, int choice);

    int m_levels;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_kill{false};
    int m_topPlane = 0;
    int m_resumeRow = 0;
    int m_resumeComponent = 0;
    std::unique_ptr<WorkingBlock> m_block;
};

extern template class CWaveletEncoder<int16_t, CFilter5_3<int16_t>>;
extern template class CWaveletEncoder<int32_t, CFilter5_3<int32_t>>;

}  // namespace dvq::kelt4
