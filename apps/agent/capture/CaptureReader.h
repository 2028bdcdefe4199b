// Reads the packets of capture files, pcap or pcapng.
//
// A file stands for one link, to which the configuration binds an interface; see
// doc/configuration.md. libpcap refuses a pcapng file whose interfaces differ in
// link type or snapshot length.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "apps/config/RouterNames.h"
#include "packet/Cursor.h"
#include "packet/Ip.h"
#include "platform/base/Error.h"

namespace Agent {

// The text is "path: what is wrong".
class CaptureError : public Mox::Error {
 public:
   using Error::Error;
};

struct CapturedPacket {
   double time = 0.0;  // s since 1970
   Bytes bytes;        // valid until the next call of the reader
   size_t wireLength = 0;
   LinkType link = LinkType::unknown;
};

class CaptureReader {
 public:
   // Opens the file; "-" is standard input. Throws CaptureError.
   explicit CaptureReader( std::string path );
   ~CaptureReader();
   CaptureReader( CaptureReader&& ) noexcept;
   CaptureReader& operator=( CaptureReader&& ) noexcept;

   const std::string& path() const { return path_; }

   // Returns false at the end. Throws CaptureError where the file breaks off or is
   // damaged; the packets before are good.
   bool next( CapturedPacket& out );

 private:
   struct Handle;

   std::string path_;
   std::unique_ptr<Handle> handle_;
   LinkType link_ = LinkType::unknown;
};

// Several files as one sequence in order of time. Packets of equal time come in the
// order in which the files were added. Packets of one file keep its order.
class CaptureSequence {
 public:
   struct Packet : CapturedPacket {
      size_t file = 0;       // as add() returned it
      double elapsed = 0.0;  // s since the first packet of all; never goes back
   };

   // Opens the file and reads its first packet. REQUIRES: before next().
   // Throws CaptureError.
   size_t add( std::string path );

   const std::string& path( size_t file ) const {
      return heads_[file].reader.path();
   }

   // Returns false at the end. Throws CaptureError.
   bool next( Packet& out );

 private:
   struct Head {
      CaptureReader reader;
      CapturedPacket packet;
      bool atEnd;
   };

   static void read( Head& head );

   std::vector<Head> heads_;
   static constexpr size_t kNone = static_cast<size_t>( -1 );
   size_t last_ = kNone;  // the file whose packet was handed out
   double start_ = 0.0;
   double elapsed_ = 0.0;
};

}
