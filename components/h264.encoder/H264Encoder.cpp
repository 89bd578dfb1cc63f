#include "h264.encoder/H264Encoder.h"

namespace cmcomponents {

const EncoderSpec& h264EncoderSpec() {
    using Kind = SettingSpec::Kind;
    using Target = SettingSpec::Target;
    static const EncoderSpec spec{
        "h264 encoder",
        "libx264",
        ZR::fourcc("vide"),
        ZR::fourcc("avc1"),
        videoEncoderSettings({
            {"crf", Kind::kInteger, 0, 51, nullptr, Target::kCodecPrivate, "crf", nullptr},
            {"preset", Kind::kChoice, 0, 0, kX26xPresets, Target::kCodecPrivate, "preset", nullptr},
            {"profile", Kind::kChoice, 0, 0, "baseline main high high10 high422 high444",
             Target::kCodecPrivate, "profile", nullptr},
            {"tune", Kind::kChoice, 0, 0,
             "film animation grain stillimage psnr ssim fastdecode zerolatency",
             Target::kCodecPrivate, "tune", nullptr},
        }),
    };
    return spec;
}

}  // namespace cmcomponents
