#include <openjph/ojph_arch.h>
#include <openjph/ojph_codestream.h>
#include <openjph/ojph_file.h>
#include <openjph/ojph_mem.h>
#include <openjph/ojph_params.h>

#include "bench/keltpeers.h"

namespace {

const uint8_t* rowOf(const BenchFrame& frame, int y) {
    return frame.pixels.data() + static_cast<size_t>(y) * static_cast<size_t>(frame.width) *
                                     static_cast<size_t>(frame.bytesPerPixel);
}

}  // namespace

std::vector<uint8_t> peers::encodeOpenJph(const BenchFrame& frame) {
    const auto width = static_cast<ojph::ui32>(frame.width);
    const auto components = static_cast<ojph::ui32>(frame.components());
    ojph::codestream stream;
    ojph::param_siz size = stream.access_siz();
    size.set_image_extent(ojph::point(width, static_cast<ojph::ui32>(frame.height)));
    size.set_num_components(components);
    for (ojph::ui32 c = 0; c < components; ++c) {
        size.set_component(c, ojph::point(1, 1), static_cast<ojph::ui32>(frame.bitsUsed), false);
    }
    ojph::param_cod coding = stream.access_cod();
    coding.set_num_decomposition(5);
    coding.set_block_dims(64, 64);
    coding.set_reversible(true);
    coding.set_color_transform(components == 3);
    stream.set_planar(false);

    ojph::mem_outfile file;
    file.open(frame.pixels.size());
    stream.write_headers(&file);
    ojph::ui32 component = 0;
    ojph::line_buf* line = stream.exchange(nullptr, component);
    for (int y = 0; y < frame.height; ++y) {
        const uint8_t* const row = rowOf(frame, y);
        for (ojph::ui32 c = 0; c < components; ++c) {
            ojph::si32* const to = line->i32;
            if (components == 3) {
                for (ojph::ui32 x = 0; x < width; ++x)
                    to[x] = row[3 * x + component];
            } else {
                widenSamples(frame, row, width, to);
            }
            line = stream.exchange(line, component);
        }
    }
    stream.flush();
    std::vector<uint8_t> coded(file.get_data(), file.get_data() + file.tell());
    stream.close();
    return coded;
}

std::vector<uint8_t> peers::decodeOpenJph(const BenchFrame& frame, const std::vector<uint8_t>& coded) {
    ojph::mem_infile file;
    file.open(coded.data(), coded.size());
    ojph::codestream stream;
    stream.read_headers(&file);
    stream.set_planar(false);
    stream.create();
    std::vector<uint8_t> pixels(frame.pixels.size());
    for (int y = 0; y < frame.height; ++y) {
        uint8_t* const row = pixels.data() + (rowOf(frame, y) - frame.pixels.data());
        for (int c = 0; c < frame.components(); ++c) {
            ojph::ui32 component = 0;
            const ojph::line_buf* const line = stream.pull(component);
            if (frame.components() == 3) {
                for (int x = 0; x < frame.width; ++x)
                    row[3 * x + static_cast<int>(component)] = static_cast<uint8_t>(line->i32[x]);
            } else {
                narrowSamples(frame, line->i32, static_cast<size_t>(frame.width), row);
            }
        }
    }
    stream.close();
    return pixels;
}
