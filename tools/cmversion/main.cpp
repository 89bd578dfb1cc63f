// Prints the library version and the table of result codes with their texts: the smallest
// program that shows the installed library answering.
#include <cm/cm.h>

#include <cstdio>
#include <string>

int main() {
    std::printf("cm %s\n\nresult codes:\n", ZR::CM::version());
    const int specific[] = {0, -1};
    for (int code : specific) {
        std::printf("%5d  %s\n", code, ZR::CM::stringWithResultCode(code));
    }
    for (int code = ZR::CM::kResultUnhandledException; code <= ZR::CM::kResultSymbolicLinkFailed;
         ++code) {
        const char* text = ZR::CM::stringWithResultCode(code);
        if (std::string(text) != "unknown error") {
            std::printf("%5d  %s\n", code, text);
        }
    }
    ZR::CM::CComponentStatus status;
    std::printf("\ncomponent status: %s\n", ZR::RString(status).c_str());
    return 0;
}
