// The PCL5 drawing driver.  Not offered yet: every slot says so.
#include "core/driver.h"

namespace pcl5 {
const QlDrawDriver PCLDriver = ql::kUnsupportedDrawDriver;
}  // namespace pcl5
