#include "hsutils/transfersyntaxes.h"

namespace {

constexpr std::string_view kJpeg2000LosslessOnly = "1.2.840.10008.1.2.4.90";
constexpr std::string_view kJpeg2000 = "1.2.840.10008.1.2.4.91";

constexpr TransferSyntax kReadable[] = {
    {"1.2.840.10008.1.2", "Little Endian Implicit"},
    {"1.2.840.10008.1.2.1", "Little Endian Explicit"},
    {"1.2.840.10008.1.2.1.99", "Deflated Explicit VR Little Endian"},
    {"1.2.840.10008.1.2.2", "Big Endian Explicit"},
    {"1.2.840.10008.1.2.4.50", "JPEG Baseline"},
    {"1.2.840.10008.1.2.4.51", "JPEG Extended, Process 2+4"},
    {"1.2.840.10008.1.2.4.53", "JPEG Spectral Selection, Non-hierarchical, Process 6+8"},
    {"1.2.840.10008.1.2.4.55", "JPEG Full Progression, Non-hierarchical, Process 10+12"},
    {"1.2.840.10008.1.2.4.57", "JPEG Lossless, Non-hierarchical, Process 14"},
    {"1.2.840.10008.1.2.4.70", "JPEG Lossless, Non-hierarchical, 1st Order Prediction"},
    {"1.2.840.10008.1.2.4.80", "JPEG-LS Lossless"},
    {"1.2.840.10008.1.2.4.81", "JPEG-LS Lossy (Near-lossless)"},
    {kJpeg2000LosslessOnly, "JPEG 2000 (Lossless only)"},
    {kJpeg2000, "JPEG 2000 (Lossless or Lossy)"},
    {"1.2.840.10008.1.2.4.201", "High-Throughput JPEG 2000 (Lossless only)", kJpeg2000LosslessOnly, true},
    {"1.2.840.10008.1.2.4.202", "High-Throughput JPEG 2000 with RPCL Options (Lossless only)",
     kJpeg2000LosslessOnly, true},
    {"1.2.840.10008.1.2.4.203", "High-Throughput JPEG 2000 (Lossless or Lossy)", kJpeg2000},
    {"1.2.840.10008.1.2.5", "RLE Lossless"},
};

}  // namespace

std::span<const TransferSyntax> readableTransferSyntaxes() {
    return kReadable;
}

const TransferSyntax* findHighThroughput(std::string_view uid) {
    for (const TransferSyntax& syntax : kReadable) {
        if (syntax.isHighThroughput() && syntax.uid == uid) return &syntax;
    }
    return nullptr;
}
