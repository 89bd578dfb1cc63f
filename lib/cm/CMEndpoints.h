// The queue endpoints a component keeps: a malloc'd array of readers or writers, one per
// queue in order, each retained once by the component. Private to the library.
#ifndef CM_LIB_CMENDPOINTS_H
#define CM_LIB_CMENDPOINTS_H

#include <cm/CMQueueRW.h>

#include <cstdlib>
#include <vector>

namespace ZR {
namespace CM {

class RComponent;

// One Endpoint (RQFrameReader or RQFrameWriter) per queue, owned by `owner`.
template <typename Endpoint>
Endpoint** makeEndpoints(const std::vector<RQueue*>& queues, RComponent* owner, int& count) {
    count = static_cast<int>(queues.size());
    auto** endpoints = static_cast<Endpoint**>(std::malloc(sizeof(Endpoint*) * queues.size()));
    for (int i = 0; i < count; ++i) {
        endpoints[i] = new Endpoint(queues[static_cast<size_t>(i)], owner);
        endpoints[i]->retain();
    }
    return endpoints;
}

// Releases every endpoint and frees the array; no-throw.
template <typename Endpoint>
void releaseEndpoints(Endpoint**& endpoints, int& count) noexcept {
    for (int i = 0; i < count; ++i) {
        endpoints[i]->release();
    }
    std::free(endpoints);
    endpoints = nullptr;
    count = 0;
}

template <typename Endpoint>
Endpoint* endpointAt(Endpoint* const* endpoints, int count, int index) noexcept {
    return index >= 0 && index < count ? endpoints[index] : nullptr;
}

}  // namespace CM
}  // namespace ZR

#endif
