// NSError.
#include "platform/Error.h"

#include "simulator/foundation/Foundation.h"

namespace NS {

std::string Error::localizedDescription() const {
  return simulator::live<simulator::ErrorObject>(get(), "NSError.localizedDescription").text;
}

}  // namespace NS
