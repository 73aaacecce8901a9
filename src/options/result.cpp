#include "options/result.h"

namespace qvio {

uint32_t CurrentExceptionResult() noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    return failure.code();
  } catch (const OptionsError&) {
    return QV_IO_ERROR_INVALID_ARGUMENT;
  } catch (...) {
    return QV_IO_ERROR_DRIVER_FAILURE;
  }
}

}  // namespace qvio
