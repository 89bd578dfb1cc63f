#include <cm/CMQueueNode.h>

namespace ZR {
namespace CM {

// Out of line so that the virtual tables have one home in the library.
RQNode::~RQNode() = default;

RQDescription::~RQDescription() = default;

}  // namespace CM
}  // namespace ZR
