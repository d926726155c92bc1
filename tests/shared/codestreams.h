#pragma once

#include "codecs/codecregistry.h"
#include "tests/shared/testobject.h"

/// The system's codecs and those of the toolkit's encoders that only tests need, while it lives.
class Encoders {
public:
    Encoders();
    ~Encoders();

private:
    CodecRegistry m_codecs;
};

/// An image to make data sets of, uncompressed.
struct TestImage : ImageShape {
    Bytes pixels;  ///< all frames, native byte order

    Bytes frame(int index) const;
    /// Fills `pixels` with a pattern that uses the whole range of the stored bits, different in every frame.
    void fill();
    /// A data set with the attributes of the image, without pixel data.
    std::unique_ptr<DcmDataset> describe() const;
    std::unique_ptr<DcmDataset> dataset() const;
};

/// The data set's image compressed to `xfer`, the uncompressed pixels dropped.
void compress(DcmDataset& dataset, E_TransferSyntax xfer,
              const DcmRepresentationParameter* parameter = nullptr);

/// The values of the fragments of a compressed data set, the offset table first.
std::vector<Bytes> fragmentsOf(DcmDataset& dataset);

/// Puts compressed pixel data of these fragments (the offset table first) into the data set.
void putFragments(DcmDataset& dataset, const std::vector<Bytes>& fragments,
                  E_TransferSyntax xfer = EXS_JPEG2000LosslessOnly);

/// The codestream of each frame of `image`, lossless.
std::vector<Bytes> codestreamsOf(const TestImage& image);

struct Decoded {
    OFCondition condition;
    Bytes pixels;
    std::string colorModel;
    Uint32 nextFragment = 0;
};
Decoded decodeFrame(DcmDataset& dataset, uint32_t frame, size_t frameBytes, Uint32 startFragment = 0);
