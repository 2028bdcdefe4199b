// Captures of real packets, if there are any, and a dissector's listing of them.
//
// A line of the listing has tab-separated columns: file, frame, seconds, sender,
// destination, type, checksum, detail; of a join/prune the detail is
//
//    up=10.0.0.8 hold=45 J(10.0.0.4/32,225.0.0.3/32)WR P(10.0.0.7/32,...)R
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Agent {

// The directory named by PIMSM_CAPTURES, or the one beside the source tree.
inline std::optional<std::filesystem::path> capturesDirectory() {
   const char* named = std::getenv( "PIMSM_CAPTURES" );
   std::filesystem::path path =
      named != nullptr ? named : PIMSM_SOURCE_DIR "/../shared/data/captures";
   if ( !std::filesystem::is_directory( path ) ) return {};
   return path;
}

struct ListedMessage {
   double seconds = 0.0;
   std::string sender;
   std::string destination;
   std::string type;
   std::string checksum;  // "Good", "Bad", "-" where the capture is cut
   std::string detail;
};

// By capture and frame.
using ListedMessages = std::map<std::string, std::map<int, ListedMessage>>;

inline std::vector<std::vector<std::string>> listedLines(
   const std::filesystem::path& path ) {
   std::vector<std::vector<std::string>> out;
   std::ifstream file( path );
   std::string line;
   std::getline( file, line );  // the columns' names
   while ( std::getline( file, line ) ) {
      std::istringstream columns( line );
      auto& column = out.emplace_back( 8 );
      for ( std::string& text : column ) std::getline( columns, text, '\t' );
   }
   return out;
}

inline ListedMessages listedMessages( const std::filesystem::path& directory ) {
   ListedMessages out;
   for ( const auto& column : listedLines( directory / "decoded-pim.tsv" ) )
      out[column[0]][std::stoi( column[1] )] = { std::stod( column[2] ),
                                                 column[3],
                                                 column[4],
                                                 column[5],
                                                 column[6],
                                                 column[7] };
   return out;
}

// By capture and frame a line for each record: its columns from the sender on,
// separated by blanks.
using ListedMemberships =
   std::map<std::string, std::map<int, std::vector<std::string>>>;

inline ListedMemberships listedMemberships(
   const std::filesystem::path& directory ) {
   ListedMemberships out;
   for ( const auto& column :
         listedLines( directory / "decoded-membership.tsv" ) ) {
      std::string text =
         column[3] + ' ' + column[4] + ' ' + column[5] + ' ' + column[6];
      if ( !column[7].empty() ) text += ' ' + column[7];
      out[column[0]][std::stoi( column[1] )].push_back( text );
   }
   return out;
}

}

#define SKIP_WITHOUT_CAPTURES( directory )                          \
   if ( !( directory ) )                                            \
   GTEST_SKIP() << "no captures here; name their directory in the " \
                   "environment variable PIMSM_CAPTURES"
