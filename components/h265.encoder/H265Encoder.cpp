#include "h265.encoder/H265Encoder.h"

namespace cmcomponents {

const EncoderSpec& h265EncoderSpec() {
    using Kind = SettingSpec::Kind;
    using Target = SettingSpec::Target;
    static const EncoderSpec spec{
        "h265 encoder",
        "libx265",
        ZR::fourcc("vide"),
        ZR::fourcc("hvc1"),
        videoEncoderSettings({
            {"crf", Kind::kInteger, 0, 51, nullptr, Target::kCodecPrivate, "crf", nullptr},
            {"preset", Kind::kChoice, 0, 0, kX26xPresets, Target::kCodecPrivate, "preset", nullptr},
            {"profile", Kind::kChoice, 0, 0,
             "main main10 main12 main422-10 main444-8 main444-10 mainstillpicture",
             Target::kCodecPrivate, "profile", nullptr},
            {"x265-params", Kind::kText, 0, 0, nullptr, Target::kCodecPrivate, "x265-params",
             "log-level=error"},
        }),
    };
    return spec;
}

}  // namespace cmcomponents
