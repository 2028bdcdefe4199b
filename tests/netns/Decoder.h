// The packets of interfaces, decoded by tshark(1), which knows nothing of this project.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <csignal>

#include "tests/netns/Namespace.h"
#include "tests/support/Program.h"

namespace Netns {

class Decoder {
 public:
   static constexpr const char* missing = "no tshark here: the packets stay unread";
   static bool available() {
      static const bool there =
         Mox::Test::runToEnd( { "/usr/bin/env", "tshark", "--version" } ).status ==
         0;
      return there;
   }

   // Captures what routers and hosts tell each other on these interfaces, from now on.
   Decoder( const Namespace& space, const std::vector<std::string>& interfaces,
            std::string file )
      : file_( std::move( file ) ) {
      Mox::Test::Program::Arguments command = {
         "/usr/bin/env",
         "tshark",
         "-P",
         "-l",
         "-w",
         file_,
         "-f",
         "ip proto 103 or ip proto 2 or ip6 proto 103 or (ip6 and not udp)" };
      for ( const std::string& each : interfaces )
         command.insert( command.end(), { "-i", each } );
      Namespace::Inside inside( space );
      capture_ = std::make_unique<Mox::Test::Program>( command );
      capture_->untilErr( "Capture started" );
   }

   // Waits for a packet whose summary has the text.
   bool saw( const std::string& text ) {
      return capture_->until(
         [&] { return capture_->out().find( text ) != std::string::npos; } );
   }
   void stop() {
      if ( !capture_ ) return;
      capture_->signal( SIGINT );
      capture_->wait();
      capture_.reset();
   }
   // The fields, by blanks, of the packets that the display filter lets pass; a line
   // each. Ends the capture.
   std::string packets( const std::string& filter, std::vector<std::string> fields,
                        const std::string& last = "frame.number" ) {
      fields.push_back( last );
      stop();
      Mox::Test::Program::Arguments command = {
         "/usr/bin/env", "tshark", "-r", file_,    "-o", "ip.check_checksum:TRUE",
         "-Y",           filter,   "-T", "fields", "-E", "separator=/s" };
      for ( const std::string& each : fields )
         command.insert( command.end(), { "-e", each } );
      const Mox::Test::Ended ended = Mox::Test::runToEnd( command );
      return ended.status == 0 ? ended.out : ended.err;
   }
   // Those with a malformed field, a wrong checksum, or another TTL or class than
   // routers give what they tell a link.
   std::string faulty() {
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

 private:
   std::string file_;
   std::unique_ptr<Mox::Test::Program> capture_;
};

}
