// The list mechanics of the frame queue, kept apart from the media classes.
//
// RQNode is one element of an RQueue: every frame is a node, and the queue links nodes
// through their next pointer and counts, per node, how many registered readers have moved
// past it. RQDescription is the abstract description of what flows in a queue; the media
// descriptions derive from it. Both are reference counted; the queue holds one reference
// to each node in its list and one to its description.
//
// Node fields are touched only by the queue, under the queue's mutex.
#ifndef CM_CMQUEUENODE_H
#define CM_CMQUEUENODE_H

#include <zrbase/object_refcount.h>

namespace ZR {
namespace CM {

class RQueue;

class RQNode : public zrbase::object_refcount {
public:
    RQNode() noexcept = default;
    // A copy is a fresh node, outside any list.
    RQNode(const RQNode&) noexcept : zrbase::object_refcount() {}
    RQNode& operator=(const RQNode&) = delete;
    ~RQNode() override;

    // The number of data bytes the node stands for; the queue sums it into its byte counters.
    virtual unsigned int getSize() const { return 0; }

    int getReadCount() const noexcept { return mReadCount; }
    RQNode* getNext() const noexcept { return mNext; }

private:
    friend class RQueue;

    int mReadCount = 0;       // registered readers that have moved past this node
    RQNode* mNext = nullptr;  // the following node; the queue holds its reference
};

class RQDescription : public zrbase::object_refcount {
public:
    ~RQDescription() override;

    virtual unsigned int type() const = 0;
    // A new description with reference count 0, equal to this one.
    virtual RQDescription* copy() const = 0;
};

}  // namespace CM
}  // namespace ZR

#endif
