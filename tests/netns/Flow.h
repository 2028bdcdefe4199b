// Numbered packets from ordinary UDP sockets, and what arrived of them.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "platform/net/IpGenAddr.h"
#include "tests/netns/Namespace.h"

namespace Netns {

constexpr uint16_t kFlowPort = 5000;

// Waits until that is so; false at the deadline without. Looks a few hundred times a
// second.
bool eventually( const std::function<bool()>& holds,
                 std::chrono::seconds deadline = std::chrono::seconds( 20 ) );

// Sends to a group from a host, from its start on until it goes or is stopped.
class Sender {
 public:
   // Packets a second; from 1 to 10,000.
   Sender( const Namespace& host, const std::string& interface,
           const Vantu::IpGenAddr& group, int rate = 1000 );
   ~Sender() { stop(); }

   // How many have been sent; their numbers are 0 to that.
   uint32_t sent() const { return sent_; }
   // The last packet is sent when this returns.
   void stop();

 private:
   void run( int rate );

   std::unique_ptr<Mox::Loop::Fd> socket_;
   std::vector<char> address_;
   std::atomic<uint32_t> sent_ = 0;
   std::atomic<bool> stopping_ = false;
   std::thread thread_;
};

// A member of a group on a host.
class Receiver {
 public:
   // Of any source, or with `source` of that one only.
   Receiver( const Namespace& host, const std::string& interface,
             const Vantu::IpGenAddr& group,
             const Vantu::IpGenAddr& source = Vantu::IpGenAddr() );

   // Takes what has arrived. The numbers, in order of arrival.
   const std::vector<uint32_t>& received();
   // Forgets what was received so far.
   void forget();

   // Is a packet of this number or a later one here?
   bool reached( uint32_t number );
   // Of all received: how many came twice, and how many are missing between the first
   // and the last; the longest run of those.
   struct Faults {
      uint32_t doubled = 0, lost = 0, longestGap = 0;
      bool operator==( const Faults& ) const = default;
   };
   Faults faults();

 private:
   std::unique_ptr<Mox::Loop::Fd> socket_;
   std::vector<uint32_t> received_;
};
std::ostream& operator<<( std::ostream& out, const Receiver::Faults& faults );

}
