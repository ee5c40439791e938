#include "service/InputError.h"

namespace Cli::Service {

InputError::~InputError() = default;

}  // namespace Cli::Service
