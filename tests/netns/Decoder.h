// What routers and hosts tell each other, as tshark(1) decodes it, which knows nothing
// of this project.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/netns/Namespace.h"

struct pcap;
struct pcap_dumper;

namespace Netns {

class Decoder {
 public:
   static constexpr const char* missing = "no tshark here: the packets stay unread";
   static bool available();

   struct Place {
      const Namespace& space;
      std::string interface;
   };
   // Captures into the file at these places while it lives, all but data.
   Decoder( const std::vector<Place>& places, std::string file );
   ~Decoder();
   Decoder( const Decoder& ) = delete;
   Decoder& operator=( const Decoder& ) = delete;

   // The fields, by blanks, of the packets so far that the display filter lets pass;
   // a line each, its last word the field `last`.
   std::string packets( const std::string& filter, std::vector<std::string> fields,
                        const std::string& last = "frame.number" ) const;
   // Those with a malformed field, a wrong checksum, or another TTL or class than
   // routers give what they tell a link.
   std::string faulty() const;

 private:
   void run();

   std::string file_;
   std::vector<pcap*> captures_;
   pcap_dumper* out_ = nullptr;
   mutable std::mutex writing_;  // the file ends with a whole packet outside
   std::atomic<bool> stopping_ = false;
   std::thread thread_;
};

}
