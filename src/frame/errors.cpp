// Error reporting shared by the validating families.
#include "frame/errors.h"

#include "kvutil.h"

namespace kvaudio {

uint32_t ReportError(uint32_t code) {
  ErrOut("audioUtil(0x%lX)", static_cast<unsigned long>(code));
  return code;
}

}  // namespace kvaudio
