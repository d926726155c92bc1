#include "codecs/j2kopenjpeg.h"

#include <dcmtk/dcmdata/dctypes.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace {

struct CodecDeleter {
    void operator()(opj_codec_t* codec) const { opj_destroy_codec(codec); }
};
struct StreamDeleter {
    void operator()(opj_stream_t* stream) const { opj_stream_destroy(stream); }
};
using Codec = std::unique_ptr<opj_codec_t, CodecDeleter>;
using Stream = std::unique_ptr<opj_stream_t, StreamDeleter>;

constexpr OPJ_SIZE_T kStreamBufferSize = 1 << 16;
constexpr auto kEndOfStream = static_cast<OPJ_SIZE_T>(-1);

/// The library's messages go to the toolkit's log; the first error is kept as the reason of a failure.
struct Messages {
    std::array<char, 256> firstError{};

    std::string reason(const char* otherwise) const { return firstError[0] ? firstError.data() : otherwise; }
    void attachTo(opj_codec_t* codec) {
        opj_set_error_handler(codec, onError, this);
        opj_set_warning_handler(codec, onWarning, this);
    }

private:
    static std::string_view withoutLineEnd(const char* message) {
        std::string_view text(message);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.remove_suffix(1);
        return text;
    }
    static void onError(const char* message, void* self) {
        const std::string_view text = withoutLineEnd(message);
        auto& first = static_cast<Messages*>(self)->firstError;
        if (!first[0]) text.copy(first.data(), first.size() - 1);
        DCMDATA_DEBUG("JPEG 2000: " << OFString(text.data(), text.size()));
    }
    static void onWarning(const char* message, void*) {
        const std::string_view text = withoutLineEnd(message);
        DCMDATA_DEBUG("JPEG 2000: " << OFString(text.data(), text.size()));
    }
};

/// A codestream in memory that the library reads.
struct Source {
    std::span<const uint8_t> bytes;
    size_t at = 0;

    static OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T size, void* self) {
        auto& source = *static_cast<Source*>(self);
        const size_t count = std::min(size, source.bytes.size() - source.at);
        if (count == 0) return kEndOfStream;
        std::memcpy(buffer, source.bytes.data() + source.at, count);
        source.at += count;
        return count;
    }
    static OPJ_OFF_T skip(OPJ_OFF_T size, void* self) {
        auto& source = *static_cast<Source*>(self);
        if (size < 0 || static_cast<uint64_t>(size) > source.bytes.size() - source.at) return -1;
        source.at += static_cast<size_t>(size);
        return size;
    }
    static OPJ_BOOL seek(OPJ_OFF_T position, void* self) {
        auto& source = *static_cast<Source*>(self);
        if (position < 0 || static_cast<uint64_t>(position) > source.bytes.size()) return OPJ_FALSE;
        source.at = static_cast<size_t>(position);
        return OPJ_TRUE;
    }
};

/// The codestream that the library writes. An exception may not pass through the library, so that a lack of
/// memory becomes a failed write.
struct Sink {
    std::vector<uint8_t>& bytes;
    size_t at = 0;

    bool reach(size_t end) {
        try {
            if (end > bytes.size()) bytes.resize(end);
        } catch (const std::bad_alloc&) {
            return false;
        }
        return true;
    }
    static OPJ_SIZE_T write(void* buffer, OPJ_SIZE_T size, void* self) {
        auto& sink = *static_cast<Sink*>(self);
        if (!sink.reach(sink.at + size)) return kEndOfStream;
        if (size != 0) std::memcpy(sink.bytes.data() + sink.at, buffer, size);
        sink.at += size;
        return size;
    }
    static OPJ_OFF_T skip(OPJ_OFF_T size, void* self) {
        auto& sink = *static_cast<Sink*>(self);
        if (size < 0 || !sink.reach(sink.at + static_cast<size_t>(size))) return -1;
        sink.at += static_cast<size_t>(size);
        return size;
    }
    static OPJ_BOOL seek(OPJ_OFF_T position, void* self) {
        auto& sink = *static_cast<Sink*>(self);
        if (position < 0 || !sink.reach(static_cast<size_t>(position))) return OPJ_FALSE;
        sink.at = static_cast<size_t>(position);
        return OPJ_TRUE;
    }
};

Stream inputStream(Source& source) {
    Stream stream(
        opj_stream_create(std::min<OPJ_SIZE_T>(kStreamBufferSize, source.bytes.size() + 1), OPJ_TRUE));
    if (!stream) return stream;
    opj_stream_set_user_data(stream.get(), &source, nullptr);
    opj_stream_set_user_data_length(stream.get(), source.bytes.size());
    opj_stream_set_read_function(stream.get(), Source::read);
    opj_stream_set_skip_function(stream.get(), Source::skip);
    opj_stream_set_seek_function(stream.get(), Source::seek);
    return stream;
}

Stream outputStream(Sink& sink) {
    Stream stream(opj_stream_create(kStreamBufferSize, OPJ_FALSE));
    if (!stream) return stream;
    opj_stream_set_user_data(stream.get(), &sink, nullptr);
    opj_stream_set_write_function(stream.get(), Sink::write);
    opj_stream_set_skip_function(stream.get(), Sink::skip);
    opj_stream_set_seek_function(stream.get(), Sink::seek);
    return stream;
}

/// The library's parameters for `options`.
opj_cparameters_t encoderParameters(const opj_image_t& image, const J2kEncodeOptions& options,
                                    std::string& comment) {
    opj_cparameters_t parameters;
    opj_set_default_encoder_parameters(&parameters);
    parameters.irreversible = options.lossless ? 0 : 1;
    parameters.tcp_mct = options.multiComponentTransform ? 1 : 0;
    parameters.cp_disto_alloc = 1;
    const unsigned layers = std::clamp(options.layers, 1U, 32U);
    parameters.tcp_numlayers = static_cast<int>(layers);
    for (unsigned layer = 0; layer < layers; ++layer) {
        const double final = options.lossless ? 1.0 : options.openJpegRatio;
        const double ratio = final * static_cast<double>(uint64_t{1} << (layers - 1 - layer));
        const bool unlimited = layer + 1 == layers && (options.lossless || ratio <= 1.0);
        parameters.tcp_rates[layer] = unlimited ? 0.0F : static_cast<float>(ratio);
    }
    // A level more than the shorter side can be halved is refused by the library.
    const uint32_t shorter = std::min(image.comps[0].w, image.comps[0].h);
    parameters.numresolution = std::clamp(static_cast<int>(std::bit_width(shorter)), 1, 6);
    if (!comment.empty()) parameters.cp_comment = comment.data();
    return parameters;
}

}  // namespace

OFCondition decodeJ2k(std::span<const uint8_t> codestream, J2kImage& image) {
    Source source{codestream};
    Messages messages;
    const Stream stream = inputStream(source);
    const Codec codec(opj_create_decompress(OPJ_CODEC_J2K));
    if (!stream || !codec) return EC_MemoryExhausted;
    messages.attachTo(codec.get());
    opj_dparameters_t parameters;
    opj_set_default_decoder_parameters(&parameters);
    if (!opj_setup_decoder(codec.get(), &parameters) || !opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE))
        return j2kError(messages.reason("the decoder cannot be set up"));
    opj_image_t* decoded = nullptr;
    const bool header = opj_read_header(stream.get(), codec.get(), &decoded);
    image.reset(decoded);
    if (!header || !image) return j2kError(messages.reason("the header cannot be read"));
    if (!opj_decode(codec.get(), stream.get(), image.get()))
        return j2kError(messages.reason("the codestream cannot be decoded"));
    for (const opj_image_comp_t& component : std::span(image->comps, image->numcomps))
        if (!component.data) return j2kError(messages.reason("a component has no samples"));
    return EC_Normal;
}

OFCondition encodeJ2k(opj_image_t& image, const J2kEncodeOptions& options, std::vector<uint8_t>& codestream) {
    codestream.clear();
    Sink sink{codestream};
    Messages messages;
    const Stream stream = outputStream(sink);
    const Codec codec(opj_create_compress(OPJ_CODEC_J2K));
    if (!stream || !codec) return EC_MemoryExhausted;
    messages.attachTo(codec.get());
    std::string comment = options.comment;
    opj_cparameters_t parameters = encoderParameters(image, options, comment);
    if (!opj_setup_encoder(codec.get(), &parameters, &image) ||
        !opj_start_compress(codec.get(), &image, stream.get()) || !opj_encode(codec.get(), stream.get()) ||
        !opj_end_compress(codec.get(), stream.get()))
        return j2kError(messages.reason("the image cannot be encoded"));
    return EC_Normal;
}

J2kImage makeJ2kImage(uint32_t width, uint32_t height, unsigned components, unsigned precision,
                      bool isSigned) {
    std::vector<opj_image_cmptparm_t> parameters(components);
    for (opj_image_cmptparm_t& parameter : parameters) {
        parameter = {};
        parameter.dx = parameter.dy = 1;
        parameter.w = width;
        parameter.h = height;
        parameter.prec = precision;
        parameter.sgnd = isSigned ? 1 : 0;
    }
    J2kImage image(
        opj_image_create(components, parameters.data(), components == 1 ? OPJ_CLRSPC_GRAY : OPJ_CLRSPC_SRGB));
    if (image) {
        image->x1 = width;
        image->y1 = height;
    }
    return image;
}
