#include "handler/KxCContainerHandler.h"

KxCContainerHandler::KxCContainerHandler() : container(KxNContainer::KxCContainer::GetInstance()) {}

KxCContainerHandler::~KxCContainerHandler() {
    detach();
}
