#include "apps/agent/capture/CaptureReader.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <utility>

#include "apps/agent/capture/LinkTypes.h"

namespace Agent {
namespace {

// libpcap begins some of its messages with the path.
[[noreturn]] void fail( const std::string& path, std::string text ) {
   if ( text.rfind( path + ": ", 0 ) == 0 ) text.erase( 0, path.size() + 2 );
   throw CaptureError( path + ": " + text );
}

}

struct CaptureReader::Handle {
   explicit Handle( pcap_t* p ) : pcap( p ) {}
   ~Handle() { pcap_close( pcap ); }
   Handle( const Handle& ) = delete;
   Handle& operator=( const Handle& ) = delete;

   pcap_t* pcap;
};

CaptureReader::CaptureReader( std::string path ) : path_( std::move( path ) ) {
   char error[PCAP_ERRBUF_SIZE] = "";
   pcap_t* pcap = pcap_open_offline_with_tstamp_precision(
      path_.c_str(), PCAP_TSTAMP_PRECISION_NANO, error );
   if ( pcap == nullptr ) fail( path_, error );
   handle_ = std::make_unique<Handle>( pcap );
   link_ = linkTypeOf( pcap_datalink( pcap ) );
}

CaptureReader::~CaptureReader() = default;
CaptureReader::CaptureReader( CaptureReader&& ) noexcept = default;
CaptureReader& CaptureReader::operator=( CaptureReader&& ) noexcept = default;

bool CaptureReader::next( CapturedPacket& out ) {
   constexpr int kPacket = 1;
   constexpr int kEnd = PCAP_ERROR_BREAK;
   pcap_pkthdr* header = nullptr;
   const u_char* bytes = nullptr;
   int result = pcap_next_ex( handle_->pcap, &header, &bytes );
   if ( result == kEnd ) return false;
   if ( result != kPacket ) fail( path_, pcap_geterr( handle_->pcap ) );
   // With the precision asked for, the field holds nanoseconds.
   out.time = static_cast<double>( header->ts.tv_sec ) +
              static_cast<double>( header->ts.tv_usec ) * 1e-9;
   out.bytes = Bytes( bytes, header->caplen );
   out.wireLength = header->len;
   out.link = link_;
   return true;
}

size_t CaptureSequence::add( std::string path ) {
   Head head{ CaptureReader( std::move( path ) ), {}, false };
   read( head );
   heads_.push_back( std::move( head ) );
   return heads_.size() - 1;
}

void CaptureSequence::read( Head& head ) {
   head.atEnd = !head.reader.next( head.packet );
}

bool CaptureSequence::next( Packet& out ) {
   bool isFirst = last_ == kNone;
   // Reads on only now: until here the caller used the bytes of this file's packet.
   if ( !isFirst ) read( heads_[last_] );
   auto earliest = std::min_element(
      heads_.begin(), heads_.end(), []( const Head& a, const Head& b ) {
         if ( a.atEnd != b.atEnd ) return b.atEnd;
         return !a.atEnd && a.packet.time < b.packet.time;
      } );
   if ( earliest == heads_.end() || earliest->atEnd ) return false;
   last_ = static_cast<size_t>( earliest - heads_.begin() );
   if ( isFirst ) start_ = earliest->packet.time;
   elapsed_ = std::max( elapsed_, earliest->packet.time - start_ );
   static_cast<CapturedPacket&>( out ) = earliest->packet;
   out.file = last_;
   out.elapsed = elapsed_;
   return true;
}

}
