#include <zrbase/object_refcount.h>

namespace zrbase {

// Out of line so that the class has one home for its virtual table.
object_refcount::~object_refcount() = default;

}  // namespace zrbase
