// A component module that fails on purpose: a filter that passes the frames of its first
// input to its first output until its settings make it throw.
//   "throw-in"  where: "configure", "process" or "flush" (nowhere by default);
//   "after"     how many frames process() passes on before it throws (0);
//   "kind"      what: "cm" a ZR::CException, "std" a std::runtime_error, "other" an int;
//   "recover"   1: handleException() records the failure in the status and returns,
//               instead of ending the process as every component does by default.
// getStatus() carries kResultUnhandledException in mExtra, and the handled exception's
// text in mInfo, once it has recovered from one.
#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMQueueRW.h>
#include <zr/CMutex.h>

#include <mutex>
#include <stdexcept>
#include <string>

namespace {

class FaultyFilter : public ZR::CM::CMMultipleQueueComponent, public ZR::CM::CConfigurableP {
public:
    unsigned int type() const override { return ZR::fourcc("fltr"); }

    int configure(ZR::CM::RComponentConfiguration& configuration) override {
        mWhere = configuration.getString("throw-in", "").c_str();
        mAfter = configuration.getInt("after", 0, 0, 1 << 30);
        mKind = configuration.getString("kind", "cm").c_str();
        mRecover = configuration.getInt("recover", 0, 0, 1) == 1;
        throwIf("configure");
        return 0;
    }

    void process() override {
        const ZR::RPtr<ZR::CM::RFrame> frame = getReader(0)->nextFrame();
        if (!frame) {
            return;
        }
        if (mPassed++ == mAfter) {
            throwIf("process");
        }
        getWriter(0)->put(frame);
    }

    void flush() override { throwIf("flush"); }

    void handleException(const ZR::CException& e) override {
        if (!mRecover) {
            CMMultipleQueueComponent::handleException(e);
            return;
        }
        std::lock_guard<ZR::CMutex> lock(mHandledMutex);
        mHandled = std::string(e.getFile()) + ": " + e.getMessage();
    }

    ZR::CM::CComponentStatus getStatus() override {
        ZR::CM::CComponentStatus status;
        std::lock_guard<ZR::CMutex> lock(mHandledMutex);
        if (!mHandled.empty()) {
            status.mExtra = ZR::CM::kResultUnhandledException;
            status.mInfo = mHandled.c_str();
        }
        return status;
    }

private:
    void throwIf(const char* where) const {
        if (mWhere != where) {
            return;
        }
        const std::string message = std::string("faulty ") + where;
        if (mKind == "std") {
            throw std::runtime_error(message);
        }
        if (mKind == "other") {
            throw 42;
        }
        throw ZR::CException("ZR::CException", 1, "tests/modules/faulty", __PRETTY_FUNCTION__,
                             ZR::CString(message.c_str()));
    }

    std::string mWhere;
    int mAfter = 0;
    std::string mKind;
    bool mRecover = false;
    int mPassed = 0;  // the component's thread only
    // Guards mHandled.
    ZR::CMutex mHandledMutex;
    std::string mHandled;  // guarded by mHandledMutex
};

}  // namespace

extern "C" ZR::CM::RComponent* getComponentInstance() {
    return new FaultyFilter;
}
