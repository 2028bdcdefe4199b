#include "apps/agent/capture/LiveCapture.h"

#include <net/if.h>
#include <pcap/pcap.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "apps/agent/capture/LinkTypes.h"

namespace Agent {
namespace {

constexpr int kSnapshotLength = 65535;
constexpr int kBuffer = 8 << 20;  // bytes
// MLD has a hop-by-hop option (RFC 3810, 5).
constexpr const char* kFilter =
   "ip proto 2 or ip proto 103 or ip6 proto 103 or ip6 proto 0 or "
   "(icmp6 and (ip6[40] = 143 or (ip6[40] >= 130 and ip6[40] <= 132)))";
// Of PIM, neither types 1 and 2 nor fragments, which only those have.
constexpr const char* kFilterWithoutRegisters =
   "ip proto 2 or "
   "(ip proto 103 and ip[6:2] & 0x1fff = 0 and ip[(ip[0] & 15) * 4] & 15 != 1 "
   "and ip[(ip[0] & 15) * 4] & 15 != 2) or "
   "(ip6[6] = 103 and ip6[40] & 15 != 1 and ip6[40] & 15 != 2) or ip6 proto 0 or "
   "(icmp6 and (ip6[40] = 143 or (ip6[40] >= 130 and ip6[40] <= 132)))";

// Opening an interface in vain changes its promiscuity, of which the system tells as of
// any other change: who tries again at each change would never end.
bool isDown( const std::string& interface ) {
   ifreq request{};
   if ( interface.size() >= sizeof request.ifr_name ) return false;
   interface.copy( request.ifr_name, interface.size() );
   const int any = socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   if ( any < 0 ) throw CaptureError( interface + ": " + std::strerror( errno ) );
   const bool known = ioctl( any, SIOCGIFFLAGS, &request ) == 0;
   close( any );
   return known && ( request.ifr_flags & IFF_UP ) == 0;
}

// The interface is missing or down, which may change.
class InterfaceAway : public CaptureError {
 public:
   InterfaceAway( const std::string& interface, const char* what )
      : CaptureError( interface + ": " + what ), why( what ) {}
   const char* why;
};

}

struct LiveCapture::Handle {
   explicit Handle( pcap_t* p ) : pcap( p ) {}
   ~Handle() { pcap_close( pcap ); }
   Handle( const Handle& ) = delete;
   Handle& operator=( const Handle& ) = delete;

   pcap_t* pcap;
   unsigned index = 0;  // of the interface
   LinkType link = LinkType::unknown;
   unsigned dropped = 0;  // the kernel's count, since the start
};

LiveCapture::LiveCapture( Mox::Loop& loop, Mox::Clock& clock, std::string interface,
                          Observer observer, Presence presence,
                          Registers registers )
   : Notifiee( &clock ),
     loop_( loop ),
     interface_( std::move( interface ) ),
     filter_( registers == withRegisters ? kFilter : kFilterWithoutRegisters ),
     observer_( std::move( observer ) ) {
   try {
      open();
   } catch ( const InterfaceAway& e ) {
      if ( presence == isThere ) throw;
      lose( e.why );
   }
}

LiveCapture::~LiveCapture() = default;

void LiveCapture::open() {
   if ( isDown( interface_ ) ) throw InterfaceAway( interface_, "it is down" );
   char error[PCAP_ERRBUF_SIZE] = "";
   pcap_t* pcap = pcap_create( interface_.c_str(), error );
   if ( pcap == nullptr ) throw CaptureError( interface_ + ": " + error );
   auto handle = std::make_unique<Handle>( pcap );
   pcap_set_snaplen( pcap, kSnapshotLength );
   pcap_set_promisc( pcap, 1 );
   pcap_set_immediate_mode( pcap, 1 );
   pcap_set_buffer_size( pcap, kBuffer );
   int result = pcap_activate( pcap );
   if ( result < 0 ) {
      std::string text = pcap_geterr( pcap );
      if ( text.empty() ) text = pcap_statustostr( result );
      if ( result == PCAP_ERROR_NO_SUCH_DEVICE )
         throw InterfaceAway( interface_, "there is none of that name" );
      if ( result == PCAP_ERROR_IFACE_NOT_UP )
         throw InterfaceAway( interface_, "it is down" );
      if ( result == PCAP_ERROR_PERM_DENIED ) text += "; needs CAP_NET_RAW";
      throw CaptureError( interface_ + ": " + text );
   }
   bpf_program program;
   if ( pcap_compile( pcap, &program, filter_, 1, PCAP_NETMASK_UNKNOWN ) != 0 )
      throw CaptureError( interface_ + ": " + pcap_geterr( pcap ) );
   result = pcap_setfilter( pcap, &program );
   pcap_freecode( &program );
   if ( result != 0 || pcap_setdirection( pcap, PCAP_D_IN ) != 0 ||
        pcap_setnonblock( pcap, 1, error ) != 0 )
      throw CaptureError( interface_ + ": " + pcap_geterr( pcap ) + error );
   handle->index = if_nametoindex( interface_.c_str() );
   handle->link = linkTypeOf( pcap_datalink( pcap ) );
   watcher_ = std::make_unique<Mox::Loop::FdWatcher>(
      loop_, pcap_get_selectable_fd( pcap ), [this] { read(); } );
   handle_ = std::move( handle );
}

void LiveCapture::read() {
   auto take = []( u_char* self, const pcap_pkthdr* header, const u_char* bytes ) {
      auto& capture = *reinterpret_cast<LiveCapture*>( self );
      CapturedPacket packet;
      packet.bytes = Bytes( bytes, header->caplen );
      packet.wireLength = header->len;
      packet.link = capture.handle_->link;
      if ( isOfVlan( packet.link, packet.bytes ) ) return;
      capture.observer_.packet( packet );
   };
   int result = pcap_dispatch( handle_->pcap, kMaxPackets, take,
                               reinterpret_cast<u_char*>( this ) );
   if ( result < 0 ) return lose( pcap_geterr( handle_->pcap ) );
   pcap_stat stat{};
   if ( pcap_stats( handle_->pcap, &stat ) != 0 ) return;
   unsigned missed = stat.ps_drop - std::exchange( handle_->dropped, stat.ps_drop );
   if ( missed != 0 ) observer_.missed( missed );
}

void LiveCapture::lose( const std::string& why ) {
   observer_.state( interface_ + ": " + why + "; waiting for it" );
   watcher_.reset();
   handle_.reset();
   tryAgain();
}

// An interface that went while it was down is not told of: its socket would stay silent.
void LiveCapture::retry() {
   if ( handle_ == nullptr ) return tryAgain();
   if ( if_nametoindex( interface_.c_str() ) != handle_->index )
      lose( "another interface has its name" );
}

void LiveCapture::tryAgain() {
   wakeupTimeIs( Mox::Clock::never );
   try {
      open();
   } catch ( const InterfaceAway& ) {
      return;
   } catch ( const CaptureError& ) {
      wakeupTimeIs( clock()->now() + retryInterval );
      return;
   }
   observer_.state( interface_ + ": is heard" );
}

}
