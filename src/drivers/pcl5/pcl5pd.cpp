// The PCL page device, shared by the PCL5 and PCL4 drivers.  Not offered
// yet: every slot says so.
#include "core/driver.h"

namespace pcl5 {
const QlPageDriver PCLPDDriver = ql::kUnsupportedPageDriver;
}  // namespace pcl5
