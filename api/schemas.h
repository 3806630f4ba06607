// What the API's description says about bodies and answers.
#pragma once

#include "KxTamberWebApi/KxSchema.h"

namespace KxNCre {

/// One entry per endpoint, for the OpenAPI document of the web API server library.
extern const KxNTamberWebApi::KxSApiSchemas SCHEMAS;

}  // namespace KxNCre
