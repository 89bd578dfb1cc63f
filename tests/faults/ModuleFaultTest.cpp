// Component modules that fail: one that throws from its configure(), process() or
// flush(), loaded by the component manager and run in a pipeline, in the library and in
// cmhost; and modules that cannot be loaded at all.
#include "support/ComponentDirectory.h"
#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <cm/CMComponentConfiguration.h>
#include <cm/CMComponentManager.h>
#include <cm/CMQueue.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

using ZR::RPtr;
using namespace ZR::CM;

namespace {

// The build's WAV importer and exporter, and the test modules installed as filters:
// faulty.filter, needsabsent.filter and noentry.filter.
struct ComponentDirectory : cmtest::ComponentDirectory {
    ComponentDirectory() {
        link("wav.importer");
        link("wav.exporter");
        installFilter("faulty.filter", "faulty.so", CM_TEST_FAULTY_MODULE);
        installFilter("needsabsent.filter", "needsabsent.so", CM_TEST_NEEDSABSENT_MODULE);
        installFilter("noentry.filter", "noentry.so", CM_TEST_NOENTRY_MODULE);
    }
};

RComponentManager& scannedManager(const ComponentDirectory& components) {
    sys_conf::instance().set_value("common.dtd-path", CM_SOURCE_DIR "/data");
    RComponentManager& manager = *RComponentManager::getDefault();
    manager.setComponentDirectory(ZR::CString(components.path().c_str()));
    EXPECT_EQ(manager.loadComponentInformation(), 0);
    return manager;
}

// Loads the filter installed under name, for the formats its information lists.
RComponent* loadFilter(RComponentManager& manager, const std::string& name) {
    for (const auto& info : manager.getFilters()) {
        if (name == info->directoryName.c_str()) {
            const ComponentFormatItem& item = info->formatMap.getItems().front();
            return manager.loadComponent(info.addr(), item.inFormat, item.outFormat);
        }
    }
    throw std::runtime_error(name + " not found");
}

std::string loadFailure(RComponentManager& manager, const std::string& name) {
    try {
        manager.unloadComponent(loadFilter(manager, name));
    } catch (const ZR::CException& e) {
        return std::string(e.getFile()) + ": " + e.getMessage();
    }
    return "loaded";
}

}  // namespace

// A module whose needed library is missing, and one without the entry point, fail to
// load with the loader's own reason; the registry goes on loading and running the others.
TEST(ModuleFaultTest, ModulesThatCannotLoadLeaveTheRegistryUsable) {
    const ComponentDirectory components;
    RComponentManager& manager = scannedManager(components);
    const int loaded = manager.getLoadedLibraryCount();
    const std::string absent = loadFailure(manager, "needsabsent.filter");
    EXPECT_NE(absent.find("lib/cm/CMComponentManager: Failed to load component: "),
              std::string::npos)
        << absent;
    EXPECT_NE(absent.find("libcm_test_absent.so: cannot open shared object file"),
              std::string::npos)
        << absent;
    EXPECT_EQ(manager.getLoadedLibraryCount(), loaded);
    EXPECT_NE(loadFailure(manager, "noentry.filter").find("Failed to call getComponentInstance()"),
              std::string::npos);
    // Asked again, the same failures, and nothing else broke.
    EXPECT_EQ(loadFailure(manager, "needsabsent.filter"), absent);
    EXPECT_EQ(loadFailure(manager, "faulty.filter"), "loaded");
}

// The faulty filter, set to throw a std::runtime_error on its fourth frame and to recover,
// runs between a producer and a consumer. Its handler sees the exception, its run ends
// with -1 and its status says why; the frames before it reached the consumer. Aborting the
// two others then stops them, and once all three are reset no frame and no thread is left.
TEST(ModuleFaultTest, ThrowingProcessEndsItsRunAndTheOthersCanBeStopped) {
    const ComponentDirectory components;
    RComponentManager& manager = scannedManager(components);
    RPtr<RComponent> faulty(loadFilter(manager, "faulty.filter"));
    manager.unloadComponent(faulty.addr());
    auto* filter = dynamic_cast<CMMultipleQueueComponent*>(faulty.addr());
    ASSERT_TRUE(filter);
    {
        RPtr<RFilterConfiguration> configuration(new RFilterConfiguration);
        configuration->setString("throw-in", "process");
        configuration->setString("after", "3");
        configuration->setString("kind", "std");
        configuration->setString("recover", "1");
        ASSERT_EQ(dynamic_cast<CConfigurableP&>(*filter).configure(*configuration), 0);
    }
    RPtr<cmtest::Producer> producer(new cmtest::Producer(100, [](unsigned int) { return 64u; }));
    RPtr<cmtest::Consumer> consumer(new cmtest::Consumer);
    RPtr<RQueue> first(new RQueue(1, 2, ZR::CString("first")));
    RPtr<RQueue> second(new RQueue(1, 2, ZR::CString("second")));
    std::vector<RQueue*> none, in{first.addr()}, out{second.addr()};
    producer->init(none, in);
    filter->init(in, out);
    consumer->init(out, none);
    consumer->start(nullptr);
    filter->start(nullptr);
    producer->start(nullptr);

    cmtest::waitUntil([&] { return filter->getRunningThreadCount() == 0; });
    filter->join();
    EXPECT_EQ(filter->getRunResult(), -1);
    const CComponentStatus status = filter->getStatus();
    EXPECT_EQ(status.mExtra, static_cast<unsigned int>(kResultUnhandledException));
    EXPECT_NE(std::string(status.mInfo.c_str()).find("faulty process"), std::string::npos)
        << status.mInfo.c_str();
    // The consumer may still be on its way to the third frame on a busy machine.
    cmtest::waitUntil([&] { return consumer->mCount == 3; });
    producer->abort();
    consumer->abort();
    EXPECT_EQ(consumer->mSeen, (std::vector<unsigned int>{0, 1, 2}));
    for (RComponent* component : {static_cast<RComponent*>(producer.addr()), faulty.addr(),
                                  static_cast<RComponent*>(consumer.addr())}) {
        EXPECT_EQ(component->getRunningThreadCount(), 0);
        component->reset();
        EXPECT_EQ(component->retain_count(), 1);
    }
    first = nullptr;
    second = nullptr;
    EXPECT_EQ(cmtest::Tracked::live().load(), 0);
}

namespace {

struct HostRun {
    int exitStatus = -1;  // -1 when cmhost did not exit
    int signal = 0;
    std::string err;
};

// cmhost over the test's component directory, bounded by a time-out of its own so that a
// hang reads as one.
HostRun cmhost(const ComponentDirectory& components, const std::string& args) {
    const std::string err = components.configuration() + ".err";
    const int raw = std::system(("timeout -s KILL 60 " CMHOST_PATH " --config " +
                                 components.configuration() + " " + args + " >/dev/null 2>" + err)
                                    .c_str());
    HostRun run;
    if (WIFEXITED(raw)) {
        const int status = WEXITSTATUS(raw);
        // sh reports a child killed by a signal as 128 plus the signal.
        (status > 128 ? run.signal : run.exitStatus) = status > 128 ? status - 128 : status;
    }
    run.err = cmtest::readText(err);
    return run;
}

}  // namespace

// cmhost converting through the faulty filter: a filter that recovers from its exception
// fails the run, and cmhost stops the importer and exporter and says so; one that throws
// in configure() is refused before anything runs; one that does not recover ends the
// process, printing what it threw, whatever it threw.
TEST(ModuleFaultTest, CmhostReportsAFilterThatThrows) {
    const ComponentDirectory components;
    const cmtest::TempDir dir;
    const std::string tone = dir.file("tone.wav"), out = dir.file("out.wav");
    ASSERT_EQ(cmhost(components, "generate tone " + tone + " --seconds 5").exitStatus, 0);

    HostRun run = cmhost(components, "convert " + tone + " " + out +
                                         " --filter faulty:throw-in=process,after=3,recover=1");
    EXPECT_EQ(run.exitStatus, 1) << run.err;
    EXPECT_NE(run.err.find("cmhost: convert failed: unhandled exception"), std::string::npos)
        << run.err;

    run = cmhost(components,
                 "convert " + tone + " " + out + " --filter faulty:throw-in=configure,recover=1");
    EXPECT_EQ(run.exitStatus, 1) << run.err;
    EXPECT_NE(run.err.find("faulty configure"), std::string::npos) << run.err;

    for (const char* kind : {"cm", "std", "other"}) {
        run = cmhost(components, "convert " + tone + " " + out +
                                     " --filter faulty:throw-in=flush,kind=" + kind);
        EXPECT_EQ(run.signal, SIGABRT) << kind << ": " << run.err;
        EXPECT_NE(run.err.find(kind == std::string("other") ? "unknown exception" : "faulty flush"),
                  std::string::npos)
            << kind << ": " << run.err;
    }
}
