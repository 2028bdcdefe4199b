// The failures that a caller can handle, one type each. Those of the
// shared-memory tables stand in platform/shm/Error.h.
#pragma once

#include <stdexcept>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Mox {

class PIMSM_API Error : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// The text is not of the expected form.
class PIMSM_API ParseError : public Error {
 public:
   using Error::Error;
};

// The form is right, the value is not allowed: a number above its limit, an
// unknown enumerator.
class PIMSM_API RangeError : public Error {
 public:
   using Error::Error;
};

// A member of that name exists and was made with other constructor arguments.
class PIMSM_API NameInUseError : public Error {
 public:
   using Error::Error;
};

// No such attribute, type or path, or one that cannot be written.
class PIMSM_API NameError : public Error {
 public:
   using Error::Error;
};

}
