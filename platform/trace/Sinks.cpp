#include "platform/trace/Sinks.h"

#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace Mox {

namespace {

// The journal's priorities are those of syslog.
unsigned priorityOf( unsigned level ) {
   constexpr unsigned kWarning = 4, kInfo = 6, kDebug = 7;
   if ( level == 0 ) return kWarning;
   return level <= 3 ? kInfo : kDebug;
}

// Writes a line "NAME=value". A value with several lines is written with its length
// before it, in eight bytes, lowest first.
void append( String& entry, StringView name, StringView value ) {
   entry += name;
   if ( value.find( '\n' ) == StringView::npos ) {
      entry += '=';
   } else {
      entry += '\n';
      for ( unsigned shift = 0; shift < 64; shift += 8 )
         entry += static_cast<char>( uint64_t( value.size() ) >> shift );
   }
   entry += value;
   entry += '\n';
}

String entryOf( const TraceRecord& record ) {
   String entry;
   append( entry, "MESSAGE", record.text );
   append( entry, "PRIORITY", std::to_string( priorityOf( record.level ) ) );
   append( entry, "TRACE_FACILITY", record.facility );
   append( entry, "TRACE_LEVEL", std::to_string( record.level ) );
   for ( const TraceField& field : record.fields )
      append( entry, field.name, field.value );
   return entry;
}

class Journal {
 public:
   explicit Journal( const String& path )
      : socket_( socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ) ) {
      address_.sun_family = AF_UNIX;
      path.copy( address_.sun_path, sizeof address_.sun_path - 1 );
   }
   ~Journal() {
      if ( socket_ >= 0 ) close( socket_ );
   }
   Journal( const Journal& ) = delete;
   Journal& operator=( const Journal& ) = delete;

   bool take( const String& entry ) const {
      return sendto( socket_, entry.data(), entry.size(), MSG_NOSIGNAL,
                     reinterpret_cast<const sockaddr*>( &address_ ),
                     sizeof address_ ) >= 0;
   }

 private:
   int socket_;
   sockaddr_un address_{};
};

}

TraceSink textSink( std::FILE* file ) {
   return [file]( const TraceRecord& record ) {
      // The steady clock is CLOCK_MONOTONIC.
      const std::chrono::duration<double> now =
         std::chrono::steady_clock::now().time_since_epoch();
      String line = fmt::format( "{:.6f} {} {} {}", now.count(), record.facility,
                                 record.level, record.text );
      std::replace( line.begin(), line.end(), '\n', ' ' );
      line += '\n';
      std::fwrite( line.data(), 1, line.size(), file );
   };
}

TraceSink journalSink( const String& socket ) {
   return [journal = std::make_shared<Journal>( socket ),
           otherwise = textSink()]( const TraceRecord& record ) {
      if ( !journal->take( entryOf( record ) ) ) otherwise( record );
   };
}

// Compares standard error with the device and inode in JOURNAL_STREAM.
bool journalHasStandardError() {
   const char* given = std::getenv( "JOURNAL_STREAM" );
   struct stat status;
   return given != nullptr && fstat( STDERR_FILENO, &status ) == 0 &&
          fmt::format( "{}:{}", status.st_dev, status.st_ino ) == given;
}

}
