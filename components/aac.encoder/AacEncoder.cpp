#include "aac.encoder/AacEncoder.h"

namespace cmcomponents {

const EncoderSpec& aacEncoderSpec() {
    static const EncoderSpec spec{
        "aac encoder",
        "aac",
        ZR::fourcc("audi"),
        ZR::fourcc("mp4a"),
        audioEncoderSettings(
            8000, 576000,
            {{"profile", SettingSpec::Kind::kChoice, 0, 0, "aac_low aac_main aac_ltp",
              SettingSpec::Target::kCodec, "profile", nullptr}}),
    };
    return spec;
}

}  // namespace cmcomponents
