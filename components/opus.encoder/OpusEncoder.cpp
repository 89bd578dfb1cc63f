#include "opus.encoder/OpusEncoder.h"

namespace cmcomponents {

const EncoderSpec& opusEncoderSpec() {
    using Kind = SettingSpec::Kind;
    using Target = SettingSpec::Target;
    static const EncoderSpec spec{
        "opus encoder",
        "libopus",
        ZR::fourcc("audi"),
        ZR::fourcc("Opus"),
        audioEncoderSettings(6000, 510000,
                             {
                                 {"complexity", Kind::kInteger, 0, 10, nullptr, Target::kCodec,
                                  "compression_level", nullptr},
                                 {"application", Kind::kChoice, 0, 0, "voip audio lowdelay",
                                  Target::kCodecPrivate, "application", nullptr},
                                 {"vbr", Kind::kChoice, 0, 0, "off on constrained",
                                  Target::kCodecPrivate, "vbr", nullptr},
                             }),
    };
    return spec;
}

}  // namespace cmcomponents
