#include "tests/netns/Decoder.h"

#include <pcap/pcap.h>
#include <poll.h>

#include <stdexcept>

#include "tests/support/Program.h"

namespace Netns {
namespace {

// Data goes in UDP.
constexpr const char* kFilter =
   "ip proto 103 or ip proto 2 or ip6 proto 103 or (ip6 and not udp)";

pcap_t* opened( const Decoder::Place& place ) {
   char error[PCAP_ERRBUF_SIZE] = "";
   Namespace::Inside inside( place.space );
   pcap_t* pcap = pcap_create( place.interface.c_str(), error );
   bpf_program filter{};
   if ( pcap == nullptr || pcap_set_promisc( pcap, 1 ) != 0 ||
        pcap_set_immediate_mode( pcap, 1 ) != 0 || pcap_activate( pcap ) < 0 ||
        pcap_setnonblock( pcap, 1, error ) != 0 ||
        pcap_compile( pcap, &filter, kFilter, 1, PCAP_NETMASK_UNKNOWN ) != 0 ||
        pcap_setfilter( pcap, &filter ) != 0 )
      throw std::runtime_error( "cannot capture on " + place.interface );
   pcap_freecode( &filter );
   return pcap;
}

}

bool Decoder::available() {
   static const bool there =
      Mox::Test::runToEnd( { "/usr/bin/env", "tshark", "--version" } ).status == 0;
   return there;
}

Decoder::Decoder( const std::vector<Place>& places, std::string file )
   : file_( std::move( file ) ) {
   for ( const Place& each : places ) captures_.push_back( opened( each ) );
   out_ = pcap_dump_open( captures_.at( 0 ), file_.c_str() );
   if ( out_ == nullptr ) throw std::runtime_error( "cannot write " + file_ );
   pcap_dump_flush( out_ );
   thread_ = std::thread( [this] { run(); } );
}

Decoder::~Decoder() {
   stopping_ = true;
   thread_.join();
   pcap_dump_close( out_ );
   for ( pcap* each : captures_ ) pcap_close( each );
}

void Decoder::run() {
   std::vector<pollfd> items;
   for ( pcap* each : captures_ )
      items.push_back( { pcap_get_selectable_fd( each ), POLLIN, 0 } );
   while ( !stopping_ ) {
      if ( poll( items.data(), items.size(), 50 ) <= 0 ) continue;
      const std::lock_guard lock( writing_ );
      for ( size_t at = 0; at < items.size(); ++at ) {
         if ( items[at].revents == 0 ) continue;
         // The interface may be gone.
         if ( pcap_dispatch( captures_[at], -1, pcap_dump,
                             reinterpret_cast<u_char*>( out_ ) ) < 0 )
            items[at].fd = -1;
      }
      pcap_dump_flush( out_ );
   }
}

std::string Decoder::packets( const std::string& filter,
                              std::vector<std::string> fields,
                              const std::string& last ) const {
   fields.push_back( last );
   Mox::Test::Program::Arguments command = {
      "/usr/bin/env", "tshark",
      "-r",           file_,
      "-o",           "ip.check_checksum:TRUE",
      "-d",           "udp.port==5000,data",
      "-Y",           filter,
      "-T",           "fields",
      "-E",           "separator=/s" };
   for ( const std::string& each : fields )
      command.insert( command.end(), { "-e", each } );
   const std::lock_guard lock( writing_ );
   const Mox::Test::Ended ended = Mox::Test::runToEnd( command );
   return ended.status == 0 ? ended.out : ended.err;
}

std::string Decoder::faulty() const {
   return packets(
      "_ws.malformed or _ws.expert.severity >= 0x600000 or "
      "ip.checksum.status == 0 or (pim and pim.cksum.status != 1) or "
      "(igmp and igmp.checksum.status != 1) or "
      "(icmpv6 and icmpv6.checksum.status != 1) or "
      "(pim.type != 1 and ip.dst == 224.0.0.0/4 and "
      "(ip.ttl != 1 or ip.dsfield != 0xc0)) or "
      "(pim.type != 1 and ipv6.dst == ff00::/8 and "
      "(ipv6.hlim != 1 or ipv6.tclass != 0xc0))",
      { "ip.src", "ipv6.src", "_ws.col.Protocol", "_ws.col.Info",
        "_ws.expert.message" } );
}

}
