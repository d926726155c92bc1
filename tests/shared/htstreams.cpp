#include "tests/shared/htstreams.h"

#include <openjph/ojph_arch.h>
#include <openjph/ojph_codestream.h>
#include <openjph/ojph_file.h>
#include <openjph/ojph_mem.h>
#include <openjph/ojph_params.h>

namespace {

int sampleAt(const TestImage& image, size_t index) {
    if (image.allocated == 8)
        return image.representation == 1 ? static_cast<int8_t>(image.pixels[index]) : image.pixels[index];
    const auto cell = static_cast<uint16_t>(image.pixels[2 * index] | image.pixels[2 * index + 1] << 8);
    return image.representation == 1 ? static_cast<int16_t>(cell) : cell;
}

void describe(ojph::codestream& stream, const TestImage& image, const HtCoding& coding) {
    ojph::param_siz size = stream.access_siz();
    size.set_image_extent(ojph::point(image.columns, image.rows));
    if (coding.tile != 0) size.set_tile_size(ojph::size(coding.tile, coding.tile));
    size.set_num_components(image.samples);
    for (ojph::ui32 c = 0; c < image.samples; ++c)
        size.set_component(c, ojph::point(1, 1), image.stored, image.representation == 1);
    ojph::param_cod style = stream.access_cod();
    style.set_num_decomposition(3);
    style.set_block_dims(32, 32);
    style.set_progression_order(coding.order);
    style.set_reversible(coding.quantization == 0);
    style.set_color_transform(image.samples == 3);
    if (coding.quantization != 0) stream.access_qcd().set_irrev_quant(coding.quantization);
    stream.set_planar(false);
}

Bytes encode(const TestImage& image, size_t frame, const HtCoding& coding) {
    ojph::codestream stream;
    describe(stream, image, coding);
    ojph::mem_outfile file;
    file.open();
    stream.write_headers(&file);
    const size_t first = frame * image.rows * image.columns * image.samples;
    ojph::ui32 component = 0;
    ojph::line_buf* line = stream.exchange(nullptr, component);
    for (size_t i = 0; i < size_t{image.rows} * image.samples; ++i) {
        const size_t row = first + i / image.samples * image.columns * image.samples;
        for (size_t x = 0; x < image.columns; ++x)
            line->i32[x] = sampleAt(image, row + x * image.samples + component);
        line = stream.exchange(line, component);
    }
    stream.flush();
    Bytes coded(file.get_data(), file.get_data() + file.tell());
    stream.close();
    return coded;
}

}  // namespace

std::vector<Bytes> htStreamsOf(const TestImage& image, const HtCoding& coding) {
    std::vector<Bytes> streams;
    for (int frame = 0; frame < image.frames; ++frame)
        streams.push_back(encode(image, static_cast<size_t>(frame), coding));
    return streams;
}

std::string saveHtObject(TestObject& object, const std::string& path, const char* syntax,
                         const std::vector<Bytes>& streams) {
    std::vector<Bytes> fragments{{}};
    fragments.insert(fragments.end(), streams.begin(), streams.end());
    putFragments(object.dataset(), fragments);
    DcmFileFormat& file = object.file();
    EXPECT_TRUE(file.validateMetaInfo(EXS_JPEG2000LosslessOnly).good());
    file.getMetaInfo()->putAndInsertString(DCM_TransferSyntaxUID, syntax);
    file.getMetaInfo()->computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, EXS_LittleEndianExplicit,
                                                     EET_UndefinedLength);
    EXPECT_TRUE(file.saveFile(path.c_str(), EXS_JPEG2000LosslessOnly, EET_UndefinedLength, EGL_recalcGL,
                              EPD_noChange, 0, 0, EWM_dontUpdateMeta)
                    .good());
    return path;
}
