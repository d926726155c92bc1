#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctk.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tests/temporary_folder.h"

/// The image attributes of a test object.
struct ImageShape {
    Uint16 rows = 1;
    Uint16 columns = 1;
    Uint16 allocated = 8;
    Uint16 stored = 8;
    Uint16 highBit = 7;
    Uint16 representation = 0;
    Uint16 samples = 1;
    const char* photometric = "MONOCHROME2";
    int frames = 1;
};

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

    void describe(const ImageShape& shape);
    /// Pixel data in the file's byte order; one byte is added to an odd number of them.
    void pixels(std::vector<uint8_t> values);
    void pixels(const std::vector<uint16_t>& values);
    /// An element with explicit value representation and 16-bit or 8-bit values.
    void words(Uint16 group, Uint16 element, DcmEVR vr, const std::vector<uint16_t>& values);
    void bytes(Uint16 group, Uint16 element, DcmEVR vr, std::vector<uint8_t> values);
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

/// Numbers of a "\" separated private text, empty when the key is missing.
std::vector<int> privateNumbers(DcmItem& item, unsigned short key);
/// Bitmaps under key 73 of the items under key 71.
std::vector<std::vector<uint8_t>> storedOverlays(DcmDataset& dataset);
