#include "api/service_guard.h"

#include "KxContainer.h"
#include "KxLog.h"
#include "api/responses.h"

namespace KxNCre {

bool checkServiceStarted(KxNContainer::KxCContainer& container, KxCErrorListPool& pool,
                         KxNTamberWebApi::KxCResponse& response) {
    if (!container.IsContainerServiceEnabled(false)) {
        KxCRTE_LOG(0, "Korvex Container Service: Skipping endpoint, container service is disabled");
        answerInternalError(pool, response, "Container service is disabled");
        return false;
    }
    if (container.GetContainerServiceStatus(false) == KxNContainer::KxCContainer::STARTED) {
        return true;
    }
    KxCRTE_LOG(0, "Korvex Container Service: Skipping endpoint, container service is not started");
    answerInternalError(pool, response, "Container service is not started");
    return false;
}

}  // namespace KxNCre
