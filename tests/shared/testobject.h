#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcpxitem.h>
#include <dcmtk/dcmdata/dctk.h>

#include <memory>
#include <string_view>

#include "privateblock/PBItem.h"
#include "tests/shared/testing.h"

/// The class of objects that say what is obsolete.
inline constexpr char kContentClass[] = "2.25.0118999881999119725.1.0.1";

/// The image attributes of a test object.
struct ImageShape {
    Uint16 rows = 1;
    Uint16 columns = 1;
    Uint16 allocated = 8;
    Uint16 stored = 8;
    int highBit = -1;  ///< the highest of the stored bits unless it is given
    Uint16 representation = 0;
    Uint16 samples = 1;
    const char* photometric = "MONOCHROME2";
    int frames = 1;
    int planar = -1;  ///< Planar Configuration; -1 leaves it out

    size_t frameBytes() const { return size_t{rows} * columns * samples * allocated / 8; }
};

/// Puts the image attributes into a data set.
void describe(DcmItem& item, const ImageShape& shape);
/// Pixel data in the file's byte order; one byte is added to an odd number of them.
void putPixels(DcmItem& item, Bytes values);

/// Builds an object in memory, then writes it to a file of its own and reads that, as a conversion would.
class TestObject {
public:
    explicit TestObject(const char* sopClass = UID_SecondaryCaptureImageStorage);
    /// An image object of 8-bit or 16-bit samples.
    template <class Sample>
    TestObject(const ImageShape& shape, const std::vector<Sample>& samples) : TestObject() {
        describe(shape);
        pixels(samples);
    }

    DcmFileFormat& file() { return *m_file; }
    DcmDataset& dataset() { return *m_file->getDataset(); }

    void describe(const ImageShape& shape) { ::describe(dataset(), shape); }
    void pixels(const Bytes& values) { putPixels(dataset(), values); }
    void pixels(const Words& values);
    /// An element with explicit value representation and 16-bit or 8-bit values.
    void words(Uint16 group, Uint16 element, DcmEVR vr, const Words& values);
    void bytes(Uint16 group, Uint16 element, DcmEVR vr, Bytes values);
    void text(const DcmTag& tag, std::string_view value);
    /// One overlay group's attributes without data.
    void overlay(Uint16 group, Uint16 allocated, Uint16 position, Uint16 rows = 0, Uint16 columns = 0);

    /// Writes the object to its file and returns the path.
    std::string save(E_TransferSyntax syntax, E_EncodingType lengths = EET_UndefinedLength);
    /// The object as it is read back from a file of the transfer syntax.
    DcmDataset& reload(E_TransferSyntax syntax = EXS_LittleEndianExplicit);

private:
    TemporaryFolder m_folder;
    std::unique_ptr<DcmFileFormat> m_file;
};

/// All values of an attribute as they are written, "" when it is missing.
std::string textAt(DcmItem& item, const DcmTagKey& tag);
DcmPixelData& pixelDataOf(DcmItem& dataset);
/// Adds an LO element of group F215, whatever any dictionary says of it.
void putText(DcmItem& item, Uint16 element, const char* text);
/// The text of an element of group F215, "-" when the element is missing.
std::string textAt(DcmItem& item, Uint16 element);

// By keys of the private block: a text, its numbers that "\\" separates (none when the key is missing), one
// more item of a sequence.
void putPrivate(DcmItem& item, unsigned short key, const char* value);
std::vector<int> privateNumbers(DcmItem& item, unsigned short key);
DcmItem& newPrivateItem(DcmItem& in, unsigned short key);
/// Bitmaps under key 73 of the items under key 71.
std::vector<Bytes> storedOverlays(DcmDataset& dataset);
