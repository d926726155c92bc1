#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcxfer.h>

#include <cstdint>
#include <span>
#include <vector>

/// A family of decoders.
enum class Coding { Jpeg, JpegLs, RunLength, Jpeg2000 };

/// What the decoders' targets read from their input:
///
///     kind         1 an image that is coded first (else fragments), the other bits choose the transfer
///     syntax bits         bits allocated, bits stored, sign, planar configuration photometric  its number in
///     the list sides        columns, rows: a byte each, plus 1 frames       1 to 4 (lower bits); number of
///     fragments, 1 to 8 then the fragments with their lengths (uint16) before them, the last one all the
///     rest; or the pixels.
struct FramesInput {
    FramesInput(Coding coding, const uint8_t* data, size_t size);

    bool coded;
    E_TransferSyntax syntax;
    E_TransferSyntax roundTrip;   ///< that keeps every bit; unknown: none
    const char* metaSyntax = "";  ///< UID that the meta header names, where the toolkit has no name for it
    const char* photometric;
    uint16_t samples, columns, rows, allocated, stored, isSigned, planar;
    int frames;
    std::vector<std::span<const uint8_t>> fragments;  ///< behind an empty offset table, which is number 0
    std::vector<uint8_t> pixels;                      ///< of an image to be coded, stored bits only
};
