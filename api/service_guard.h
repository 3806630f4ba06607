// The service-state guard in front of the operations that need a running container service.
#pragma once

class KxCErrorListPool;

namespace KxNContainer {
class KxCContainer;
}

namespace KxNTamberWebApi {
class KxCResponse;
}

namespace KxNCre {

/// True when the container service is enabled and started. Otherwise the refusal is answered already and the operation
/// must return without touching `response`. A disabled service is reported as such whatever its status.
bool checkServiceStarted(KxNContainer::KxCContainer& container, KxCErrorListPool& pool,
                         KxNTamberWebApi::KxCResponse& response);

}  // namespace KxNCre
