#include "vp9.encoder/Vp9Encoder.h"

namespace cmcomponents {

const EncoderSpec& vp9EncoderSpec() {
    using Kind = SettingSpec::Kind;
    using Target = SettingSpec::Target;
    static const EncoderSpec spec{
        "vp9 encoder",
        "libvpx-vp9",
        ZR::fourcc("vide"),
        ZR::fourcc("vp09"),
        videoEncoderSettings({
            {"crf", Kind::kInteger, 0, 63, nullptr, Target::kCodecPrivate, "crf", "31"},
            {"bitrate", Kind::kInteger, 0, 1000000000, nullptr, Target::kCodec, "b", "0"},
            {"preset", Kind::kChoice, 0, 0, "best good realtime", Target::kCodecPrivate, "deadline",
             "good"},
            {"speed", Kind::kInteger, -8, 8, nullptr, Target::kCodecPrivate, "cpu-used", "4"},
            {"profile", Kind::kInteger, 0, 3, nullptr, Target::kCodec, "profile", nullptr},
        }),
    };
    return spec;
}

}  // namespace cmcomponents
