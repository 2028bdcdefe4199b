// The VRFs that have tables, by their files.
#pragma once

#include <string>
#include <vector>

#include "platform/base/Error.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/VrfName.h"

namespace Published {

// A directory may not be read; the text holds the remedy.
class PIMSM_API UnreadableDirectoryError : public Mox::Error {
 public:
   using Error::Error;
};

// The VRFs with a route table under the root, in no order. Throws
// UnreadableDirectoryError when the directory may not be read.
PIMSM_API std::vector<L3::VrfName> vrfsUnder( const std::string& root,
                                              Vantu::AddressFamily family );

// Removes the tables in directories whose one writer has that seat (WriterSeat.h),
// then the directories if they are empty. Does nothing while the writer lives.
PIMSM_API void removeTablesUnder( const std::vector<std::string>& directories,
                                  const std::string& seat );

}
