#include "platform/console/call.h"

namespace KxNConsole {

bool Call::isStarted() const {
    if (!container.IsContainerServiceEnabled(false)) {
        internalError("Container service is disabled");
        return false;
    }
    if (container.GetContainerServiceStatus(false) != KxNContainer::KxCContainer::STARTED) {
        internalError("Container service is not started");
        return false;
    }
    return true;
}

}  // namespace KxNConsole
