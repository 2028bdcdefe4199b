// The VRFs that have tables, as the files say.
#pragma once

#include <string>
#include <vector>

#include "platform/base/Error.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/VrfName.h"

namespace Published {

// A directory may not be read; the text says what to do.
class PIMSM_API UnreadableDirectoryError : public Mox::Error {
 public:
   using Error::Error;
};

// The VRFs whose route table stands under the root, in no order. Throws
// UnreadableDirectoryError where the directory may not be read.
PIMSM_API std::vector<L3::VrfName> vrfsUnder( const std::string& root,
                                              Vantu::AddressFamily family );

// Removes the tables in a directory that have no writer, and the directory when it is
// empty then. What cannot be removed stays.
PIMSM_API void removeTablesUnder( const std::string& directory );

}
