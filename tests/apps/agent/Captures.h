// Where the captures of real packets are, if anywhere: the directory named by
// PIMSM_CAPTURES, or the one beside the source tree.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace Agent {

inline std::optional<std::filesystem::path> capturesDirectory() {
   const char* named = std::getenv( "PIMSM_CAPTURES" );
   std::filesystem::path path =
      named != nullptr ? named : PIMSM_SOURCE_DIR "/../shared/data/captures";
   if ( !std::filesystem::is_directory( path ) ) return {};
   return path;
}

}

#define SKIP_WITHOUT_CAPTURES( directory )                          \
   if ( !( directory ) )                                            \
   GTEST_SKIP() << "no captures here; name their directory in the " \
                   "environment variable PIMSM_CAPTURES"
