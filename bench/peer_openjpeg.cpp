#include <openjpeg.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "bench/keltpeers.h"

namespace {

/// A growing or fixed piece of memory behind the library's stream callbacks.
struct Memory {
    std::vector<uint8_t> bytes;
    const uint8_t* source = nullptr;
    size_t size = 0;
    size_t position = 0;
};

OPJ_SIZE_T readMemory(void* buffer, OPJ_SIZE_T count, void* user) {
    auto& memory = *static_cast<Memory*>(user);
    const size_t taken = std::min<size_t>(count, memory.size - memory.position);
    if (taken == 0) return static_cast<OPJ_SIZE_T>(-1);
    std::memcpy(buffer, memory.source + memory.position, taken);
    memory.position += taken;
    return taken;
}

OPJ_SIZE_T writeMemory(void* buffer, OPJ_SIZE_T count, void* user) {
    auto& memory = *static_cast<Memory*>(user);
    if (memory.bytes.size() < memory.position + count) memory.bytes.resize(memory.position + count);
    std::memcpy(memory.bytes.data() + memory.position, buffer, count);
    memory.position += count;
    return count;
}

OPJ_OFF_T skipMemory(OPJ_OFF_T count, void* user) {
    static_cast<Memory*>(user)->position += static_cast<size_t>(count);
    return count;
}

OPJ_BOOL seekMemory(OPJ_OFF_T position, void* user) {
    static_cast<Memory*>(user)->position = static_cast<size_t>(position);
    return OPJ_TRUE;
}

using Stream = std::unique_ptr<opj_stream_t, decltype(&opj_stream_destroy)>;
using Codec = std::unique_ptr<opj_codec_t, decltype(&opj_destroy_codec)>;
using Image = std::unique_ptr<opj_image_t, decltype(&opj_image_destroy)>;

Stream openStream(Memory& memory, bool input) {
    Stream stream(opj_stream_default_create(input ? OPJ_TRUE : OPJ_FALSE), opj_stream_destroy);
    opj_stream_set_user_data(stream.get(), &memory, nullptr);
    opj_stream_set_user_data_length(stream.get(), memory.size);
    opj_stream_set_read_function(stream.get(), readMemory);
    opj_stream_set_write_function(stream.get(), writeMemory);
    opj_stream_set_skip_function(stream.get(), skipMemory);
    opj_stream_set_seek_function(stream.get(), seekMemory);
    return stream;
}

Image createImage(const BenchFrame& frame) {
    opj_image_cmptparm_t parameters[3] = {};
    for (auto& component : parameters) {
        component.dx = component.dy = 1;
        component.w = static_cast<OPJ_UINT32>(frame.width);
        component.h = static_cast<OPJ_UINT32>(frame.height);
        component.prec = static_cast<OPJ_UINT32>(frame.bitsUsed);
    }
    const int components = frame.components();
    Image image(opj_image_create(static_cast<OPJ_UINT32>(components), parameters,
                                 components == 3 ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY),
                opj_image_destroy);
    image->x1 = static_cast<OPJ_UINT32>(frame.width);
    image->y1 = static_cast<OPJ_UINT32>(frame.height);
    const size_t count = static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
    for (int c = 0; c < components; ++c) {
        OPJ_INT32* const data = image->comps[c].data;
        if (components == 1) {
            peers::widenSamples(frame, frame.pixels.data(), count, data);
            continue;
        }
        for (size_t i = 0; i < count; ++i)
            data[i] = frame.pixels[3 * i + static_cast<size_t>(c)];
    }
    return image;
}

void require(bool done, const char* what) {
    if (!done) throw std::runtime_error(std::string("OpenJPEG: ") + what);
}

}  // namespace

std::vector<uint8_t> peers::encodeOpenJpeg(const BenchFrame& frame) {
    const Image image = createImage(frame);
    opj_cparameters_t parameters;
    opj_set_default_encoder_parameters(&parameters);
    parameters.numresolution = 6;
    parameters.irreversible = 0;
    parameters.tcp_numlayers = 1;
    parameters.cp_disto_alloc = 1;
    parameters.tcp_mct = frame.components() == 3 ? 1 : 0;
    const Codec codec(opj_create_compress(OPJ_CODEC_J2K), opj_destroy_codec);
    Memory memory;
    memory.bytes.reserve(frame.pixels.size());
    require(opj_setup_encoder(codec.get(), &parameters, image.get()), "set-up");
    const Stream stream = openStream(memory, false);
    require(opj_start_compress(codec.get(), image.get(), stream.get()) &&
                opj_encode(codec.get(), stream.get()) && opj_end_compress(codec.get(), stream.get()),
            "encode");
    return std::move(memory.bytes);
}

std::vector<uint8_t> peers::decodeOpenJpeg(const BenchFrame& frame, const std::vector<uint8_t>& coded) {
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    const Codec codec(opj_create_decompress(OPJ_CODEC_J2K), opj_destroy_codec);
    require(opj_setup_decoder(codec.get(), &parameters), "set-up");
    Memory memory;
    memory.source = coded.data();
    memory.size = coded.size();
    const Stream stream = openStream(memory, true);
    opj_image_t* decoded = nullptr;
    require(opj_read_header(stream.get(), codec.get(), &decoded), "header");
    const Image image(decoded, opj_image_destroy);
    require(opj_decode(codec.get(), stream.get(), image.get()), "decode");
    std::vector<uint8_t> pixels(frame.pixels.size());
    const size_t count = static_cast<size_t>(frame.width) * static_cast<size_t>(frame.height);
    if (frame.components() == 3) {
        for (size_t i = 0; i < count; ++i) {
            for (size_t c = 0; c < 3; ++c)
                pixels[3 * i + c] = static_cast<uint8_t>(image->comps[c].data[i]);
        }
    } else {
        peers::narrowSamples(frame, image->comps[0].data, count, pixels.data());
    }
    return pixels;
}
