// Sends numbered packets from ordinary UDP sockets, and counts those that arrive.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
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

// Seconds on the clock that numbered packets carry.
double now();

// Sends to a group from a host while it lives, or until stopped.
class Sender {
 public:
   // Packets a second; from 1 to 10,000.
   Sender( const Namespace& host, const std::string& interface,
           const Vantu::IpGenAddr& group, int rate = 1000 );
   ~Sender() { stop(); }

   // The number of packets sent; they are numbered from 0.
   uint32_t sent() const { return sent_; }
   // When it began.
   double since() const { return since_; }
   // The last packet is sent when this returns.
   void stop();

 private:
   void run( int rate );

   std::unique_ptr<Mox::Loop::Fd> socket_;
   const double since_ = now();
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
   // Forgets the received packets, and those before them that a kernel held back.
   void forget();
   // Packets before that number do not count: a kernel had held them back.
   void beginIs( uint32_t number ) { begin_ = number; }

   // Has a packet of this number or a later one arrived?
   bool reached( uint32_t number );
   // The faults among all received packets: duplicates, the number missing between
   // the first and the last, and the longest run of missing ones.
   struct Faults {
      uint32_t doubled = 0, lost = 0, longestGap = 0;
      uint32_t first = 0;  // the lowest number, no fault
      bool operator==( const Faults& other ) const {
         return doubled == other.doubled && lost == other.lost;
      }
   };
   Faults faults();
   // The longest time, in s, in which each packet sent went missing.
   double gap();
   // When the first packet that arrived was sent; 0: none.
   double first();

 private:
   std::unique_ptr<Mox::Loop::Fd> socket_;
   std::vector<uint32_t> received_;
   uint32_t begin_ = 0;
   std::vector<double> sentAt_;  // of each of these
};
std::ostream& operator<<( std::ostream& out, const Receiver::Faults& faults );

// When the last packets for these groups, member or not, came in by this interface: waits
// until there was none for 0.5 s, at most 20 s. The time of the call where none comes.
std::map<Vantu::IpGenAddr, double> lastHeard(
   const Namespace& host, const std::string& interface,
   const std::vector<Vantu::IpGenAddr>& groups );

}
