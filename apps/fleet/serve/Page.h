// The files of the page, which the build puts into the program.
#pragma once

#include <string_view>

namespace Fleet {

struct PageFile {
   std::string_view path;  // of the request
   std::string_view type;
   std::string_view text;
};

// Null: there is no such file.
const PageFile* pageFile( std::string_view path );

}
