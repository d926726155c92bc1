#include "codecs/o2registration.h"

#include <memory>

#include "codecs/j2kdecoder.h"
#include "codecs/j2kencoder.h"

namespace {

struct DecoderSet {
    J2kCodecParameter parameter;
    J2kDecoder decoder;

    DecoderSet() { DcmCodecList::registerCodec(&decoder, nullptr, &parameter); }
    ~DecoderSet() { DcmCodecList::deregisterCodec(&decoder); }
};

struct EncoderSet {
    J2kCodecParameter parameter;
    D2RepresentationParameter losslessDefault{1.0, 0, true};
    D2RepresentationParameter lossyDefault{0.1, 0, false};
    J2kEncoder losslessOnly{EXS_JPEG2000LosslessOnly};
    J2kEncoder lossy{EXS_JPEG2000};

    explicit EncoderSet(const O2EncoderSettings& settings) : parameter(settings) {
        DcmCodecList::registerCodec(&losslessOnly, &losslessDefault, &parameter);
        DcmCodecList::registerCodec(&lossy, &lossyDefault, &parameter);
    }
    ~EncoderSet() {
        DcmCodecList::deregisterCodec(&losslessOnly);
        DcmCodecList::deregisterCodec(&lossy);
    }
};

std::unique_ptr<DecoderSet> s_decoders;
std::unique_ptr<EncoderSet> s_encoders;

}  // namespace

void O2DecoderRegistration::registerCodecs() {
    if (!s_decoders) s_decoders = std::make_unique<DecoderSet>();
}

void O2DecoderRegistration::cleanup() {
    s_decoders.reset();
}

void O2EncoderRegistration::registerCodecs(const O2EncoderSettings& settings) {
    if (!s_encoders) s_encoders = std::make_unique<EncoderSet>(settings);
}

void O2EncoderRegistration::cleanup() {
    s_encoders.reset();
}
