// A component module: a filter that inverts every byte of the frames it passes from its
// first input to its first output, so that a test can tell the module's own code ran.
#include <cm/CMComponent.h>
#include <cm/CMFrame.h>
#include <cm/CMQueueRW.h>

namespace {

class InvertFilter : public ZR::CM::CMMultipleQueueComponent {
public:
    unsigned int type() const override { return ZR::fourcc("fltr"); }

    void process() override {
        // nextFrame() hands this reader a copy of its own, free to change.
        const ZR::RPtr<ZR::CM::RFrame> frame = getReader(0)->nextFrame();
        if (!frame) {
            return;
        }
        unsigned char* data = frame->getData();
        for (unsigned int i = 0; i < frame->getSize(); ++i) {
            data[i] = static_cast<unsigned char>(~data[i]);
        }
        getWriter(0)->put(frame);
    }

    void flush() override {}  // every frame went out as it came in
};

}  // namespace

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new InvertFilter;
}
