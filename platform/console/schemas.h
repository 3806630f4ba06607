// The bodies of the console's operations, for the API's description.
#pragma once

#include "KxTamberWebApi/KxSchema.h"

namespace KxNConsole {

extern const KxNTamberWebApi::KxSApiSchemas SCHEMAS;

}  // namespace KxNConsole
