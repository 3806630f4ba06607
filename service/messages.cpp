// The program's message table, registered while the program is loaded and taken out again at its exit.
#include "KxErrorManager.h"

namespace {

constexpr KxResText MESSAGES[] = {
    {KX_MESSAGE_PROGRAM_NAME, "Korvex Container Service"},
    {0, nullptr},
};

struct Registration {
    Registration() { KxCErrorManager::_registerMessages(MESSAGES); }
    ~Registration() { KxCErrorManager::_unregisterMessages(MESSAGES); }
};

const Registration registration;

}  // namespace
