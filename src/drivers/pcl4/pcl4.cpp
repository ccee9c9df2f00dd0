// The PCL4 raster driver.  Not offered yet: every slot says so.
#include "core/driver.h"

namespace pcl4 {
const QlDrawDriver PCL4Driver = ql::kUnsupportedDrawDriver;
}  // namespace pcl4
