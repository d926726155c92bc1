#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

/// An uncompressed image to make a dataset of.
struct TestImage {
    uint16_t rows = 24, columns = 32, samples = 1;
    uint16_t allocated = 8, stored = 8;
    bool isSigned = false, planar = false;
    std::string photometric = "MONOCHROME2";
    uint32_t frames = 1;
    Bytes pixels;  ///< all frames, native byte order

    size_t frameBytes() const { return size_t{rows} * columns * samples * allocated / 8; }
    Bytes frame(uint32_t index) const;
    /// Fills `pixels` with a pattern that uses the whole range of the stored bits, different in every frame.
    void fill();
    /// A dataset with the attributes of the image, without pixel data.
    std::unique_ptr<DcmDataset> describe() const;
    std::unique_ptr<DcmDataset> dataset() const;
};

DcmPixelData& pixelDataOf(DcmDataset& dataset);

/// The dataset's image compressed to `xfer`, the uncompressed pixels dropped.
void compress(DcmDataset& dataset, E_TransferSyntax xfer,
              const DcmRepresentationParameter* parameter = nullptr);

/// The values of the fragments of a compressed dataset, the offset table first.
std::vector<Bytes> fragmentsOf(DcmDataset& dataset);

/// Puts compressed pixel data of these fragments (the offset table first) into the dataset.
void putFragments(DcmDataset& dataset, const std::vector<Bytes>& fragments);

/// The codestream of each frame of `image`, lossless.
std::vector<Bytes> codestreamsOf(const TestImage& image);

struct Decoded {
    OFCondition condition;
    Bytes pixels;
    std::string colorModel;
    Uint32 nextFragment = 0;
};
Decoded decodeFrame(DcmDataset& dataset, uint32_t frame, size_t frameBytes, Uint32 startFragment = 0);
