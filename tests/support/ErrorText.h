// The text of the error that a call throws.
#pragma once

#include <exception>

#include "platform/base/String.h"

namespace Mox::Test {

// "" when `call` returns; errors of other types pass through.
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
