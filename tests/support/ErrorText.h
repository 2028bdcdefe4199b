// The text of the error in which a call ends.
#pragma once

#include <exception>

#include "platform/base/String.h"

namespace Mox::Test {

// "" when `call` returns; an error of another type passes.
template <class Error = std::exception, class Call>
String errorText( Call call ) {
   try {
      call();
   } catch ( const Error& error ) {
      return error.what();
   }
   return "";
}

}
