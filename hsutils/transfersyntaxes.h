#pragma once

#include <span>
#include <string_view>

/// A transfer syntax that the system reads.
struct TransferSyntax {
    std::string_view uid;
    std::string_view name;
    /// The UID under which the toolkit reads it, for want of a name of its own; empty where it has one.
    std::string_view readAs{};
    /// Whether it promises that every bit of the samples was kept, to a decoder that can hold a stream
    /// against that.
    bool promisesLossless = false;

    /// High-Throughput JPEG 2000, which the toolkit does not know: it would take the object for one without
    /// compression.
    bool isHighThroughput() const { return !readAs.empty(); }
};

/// All of them, in the order of their UIDs as numbers.
std::span<const TransferSyntax> readableTransferSyntaxes();

/// The High-Throughput JPEG 2000 syntax of this UID; null for every other text.
const TransferSyntax* findHighThroughput(std::string_view uid);
