// Sends numbered packets from ordinary UDP sockets, and counts those that arrive.
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

// Waits until `holds` returns true; false at the deadline. Checks a few hundred
// times a second.
bool eventually( const std::function<bool()>& holds,
                 std::chrono::seconds deadline = std::chrono::seconds( 20 ) );

// Sends to a group from a host while it lives, or until stopped.
class Sender {
 public:
   // Packets a second; from 1 to 10,000.
   Sender( const Namespace& host, const std::string& interface,
           const Vantu::IpGenAddr& group, int rate = 1000 );
   ~Sender() { stop(); }

   // The number of packets sent; they are numbered from 0.
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
   // For any source, or only for `source`.
   Receiver( const Namespace& host, const std::string& interface,
             const Vantu::IpGenAddr& group,
             const Vantu::IpGenAddr& source = Vantu::IpGenAddr() );

   // Reads the arrived packets. Returns their numbers in order of arrival.
   const std::vector<uint32_t>& received();
   // Forgets the received packets.
   void forget();

   // Has a packet of this number or a later one arrived?
   bool reached( uint32_t number );
   // The faults among all received packets: duplicates, the number missing between
   // the first and the last, and the longest run of missing ones.
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
