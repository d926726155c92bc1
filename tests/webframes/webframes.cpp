// webframes FOLDER [mammogram]: writes frames of every pixel format and awkward size, each as
//   NAME.stream   the payload of the progressive stream, with NAME.raw, the exact samples, and NAME.half, the
//   native
//                 decoder's picture at 1/2^r with the r that stands in NAME.json
//   NAME.cw1      a thumbnail's payload, whole, with NAME.raw
// With "mammogram", instead, one frame of 3064 x 4664 with 12 bits and about 11 MB of stream.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "kelt4/decoder.h"
#include "kelt4/geometry.h"
#include "kelt4/keltcompressor.h"
#include "keltlegacy/keltcompress.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct Frame {
    std::string name;
    int width;
    int height;
    int bytesPerPixel;  ///< 1, 2: grey, 3: r, g, b
    int bits;
    double noise;  ///< deviation of the noise, in parts of the range
    Bytes pixels{};
};

/// Soft bodies, an edge and noise: what a picture of this field is made of.
void paint(Frame& frame) {
    std::mt19937 random(static_cast<unsigned>(frame.width * 31 + frame.height));
    std::normal_distribution<double> noise(0, frame.noise);
    const double most = std::pow(2.0, frame.bits) - 1;
    const int channels = frame.bytesPerPixel == 3 ? 3 : 1;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const double u = double(x) / frame.width, v = double(y) / frame.height;
            const double body = std::exp(-8 * ((u - 0.5) * (u - 0.5) + (v - 0.4) * (v - 0.4)));
            const double edge = u + 0.3 * v > 0.9 ? 0.25 : 0;
            for (int c = 0; c < channels; ++c) {
                const double value = 0.1 + 0.6 * body * (1 - 0.2 * c) + edge + noise(random);
                const auto sample = static_cast<unsigned>(std::clamp(value, 0.0, 1.0) * most);
                frame.pixels.push_back(static_cast<uint8_t>(sample));
                if (frame.bytesPerPixel == 2) frame.pixels.push_back(static_cast<uint8_t>(sample >> 8));
            }
        }
    }
}

void write(const std::string& path, const uint8_t* bytes, size_t size) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

void writeStream(const std::string& folder, const Frame& frame) {
    using namespace dvq::kelt4;
    CKeltCompressor compressor(frame.pixels.data(), frame.bytesPerPixel, frame.bits, frame.width,
                               frame.height);
    if (compressor.compress(0) != 0) throw std::runtime_error("no stream of " + frame.name);
    const std::string stem = folder + "/" + frame.name;
    write(stem + ".stream", compressor.payload(), compressor.payloadSize());
    write(stem + ".raw", frame.pixels.data(), frame.pixels.size());
    const int reduce = std::min(2, levelsFor(frame.width, frame.height));
    const DecodedFrame half = decode({compressor.payload(), compressor.payloadSize()}, {.reduce = reduce});
    write(stem + ".half", half.pixels.data(), half.pixels.size());
    std::ofstream(stem + ".json") << "{\"coding\": \"stream\", \"width\": " << frame.width
                                  << ", \"height\": " << frame.height
                                  << ", \"bytesPerPixel\": " << frame.bytesPerPixel
                                  << ", \"bitsUsed\": " << frame.bits << ", \"reduce\": " << reduce
                                  << ", \"halfWidth\": " << half.width << ", \"halfHeight\": " << half.height
                                  << "}\n";
}

void writeThumbnail(const std::string& folder, const Frame& frame) {
    Bytes payload(4 * frame.pixels.size() + 1000);
    const size_t size = keltcompress(frame.pixels.data(), frame.bits, frame.bytesPerPixel, frame.width,
                                     frame.height, payload.data(), payload.size());
    if (size == 0) throw std::runtime_error("no thumbnail of " + frame.name);
    const std::string stem = folder + "/" + frame.name;
    write(stem + ".cw1", payload.data(), size);
    write(stem + ".raw", frame.pixels.data(), frame.pixels.size());
    std::ofstream(stem + ".json") << "{\"coding\": \"thumbnail\", \"width\": " << frame.width
                                  << ", \"height\": " << frame.height
                                  << ", \"bytesPerPixel\": " << frame.bytesPerPixel
                                  << ", \"bitsUsed\": " << frame.bits << "}\n";
}

void writeAll(const std::string& folder, bool mammogram) {
    if (mammogram) {
        Frame frame{"mammogram", 3064, 4664, 2, 12, 0.006};
        paint(frame);
        writeStream(folder, frame);
        return;
    }
    Frame streams[] = {
        {"grey8", 200, 150, 1, 8, 0.02}, {"grey12", 257, 256, 2, 12, 0.01}, {"grey16", 130, 67, 2, 16, 0.05},
        {"rgb", 161, 120, 3, 8, 0.03},   {"column", 1, 300, 2, 10, 0.1},    {"row", 300, 1, 1, 8, 0.1},
        {"point", 1, 1, 1, 8, 0.0},      {"noise", 90, 90, 2, 16, 10.0},    {"flat", 512, 512, 2, 12, 0.0}};
    for (Frame& frame : streams) {
        paint(frame);
        writeStream(folder, frame);
    }
    Frame thumbnails[] = {{"thumb8", 128, 128, 1, 8, 0.02},
                          {"thumb12", 128, 96, 2, 12, 0.02},
                          {"thumbrgb", 100, 128, 3, 8, 0.02}};
    for (Frame& frame : thumbnails) {
        paint(frame);
        writeThumbnail(folder, frame);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3 || (argc == 3 && std::string(argv[2]) != "mammogram")) {
        std::cerr << "usage: webframes FOLDER [mammogram]\n";
        return 2;
    }
    try {
        writeAll(argv[1], argc == 3);
    } catch (const std::exception& error) {
        std::cerr << "webframes: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
