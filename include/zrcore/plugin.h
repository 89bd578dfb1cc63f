// zrcore::plugin, the base of every object a plug-in creates, and the entry point through
// which the registry (plugins.h) asks a plug-in's shared object for one.
//
// A plug-in is a shared object with an XML descriptor beside it that lists the identifiers
// it provides ("io/read/http/curl"). The shared object defines its entry point once with
// ZRCORE_PLUGIN_DEFINE(factory), where factory takes an identifier and returns a new
// object with a reference count of 0, or null for an identifier it does not know. The
// registry holds the shared object loaded for the rest of the process, so that objects it
// created stay valid whoever holds them.
#ifndef ZRCORE_PLUGIN_H
#define ZRCORE_PLUGIN_H

#include <zrbase/object_refcount.h>

namespace zrcore {

class plugin : public zrbase::object_refcount {
public:
    ~plugin() override;
};

// The version of the entry point's contract. A shared object built against another
// version is refused rather than called.
constexpr unsigned int k_plugin_abi = 1;

}  // namespace zrcore

// The two symbols the registry looks up in a plug-in's shared object.
#define ZRCORE_PLUGIN_ABI_SYMBOL "zrcore_plugin_abi"
#define ZRCORE_PLUGIN_CREATE_SYMBOL "zrcore_plugin_create"

extern "C" {
typedef unsigned int (*zrcore_plugin_abi_function)();
typedef zrcore::plugin* (*zrcore_plugin_create_function)(char const* id);
}

// Defines the entry point of a plug-in's shared object; factory is a function
// zrcore::plugin* (char const* id).
#define ZRCORE_PLUGIN_DEFINE(factory)                                                         \
    extern "C" __attribute__((visibility("default"))) unsigned int zrcore_plugin_abi() {      \
        return ::zrcore::k_plugin_abi;                                                        \
    }                                                                                         \
    extern "C" __attribute__((visibility("default"))) ::zrcore::plugin* zrcore_plugin_create( \
        char const* id) {                                                                     \
        return factory(id);                                                                   \
    }

#endif
