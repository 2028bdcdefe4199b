// Serves the metrics by HTTP to any number of clients, from the program's own loop.
//
//   hears    requests of at most HttpExchange::maxRequest bytes, one a connection
//   writes   each answer as fast as its client takes it
//   ends     a connection that takes longer than `patience` in all; beyond maxClients
//            at once, others wait to be accepted
//
// Event-loop thread only.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "platform/loop/Clock.h"
#include "platform/loop/Loop.h"

namespace Show {

class MetricsServer : public Mox::Clock::Notifiee {
 public:
   static constexpr double patience = 10.0;  // s
   static constexpr size_t maxClients = 64;
   static constexpr double freshness = 1.0;  // s; an answer is no older

   // `where`: "PORT", on the loopback address, or "ADDRESS:PORT"; an IPv6 address
   // stands in brackets; port 0: any that is free. `page` makes the metrics' text.
   // Throws Programs::WrongUsage for another text, and where it cannot listen.
   MetricsServer( Mox::Loop& loop, Mox::Clock& clock, const std::string& where,
                  std::function<std::string()> page );
   ~MetricsServer() override;

   // "127.0.0.1:9108"
   const std::string& address() const { return address_; }

 private:
   class Client;

   void onTime() override;
   void accept();
   void removeEnded();
   std::string page();

   Mox::Loop& loop_;
   std::function<std::string()> makePage_;
   std::string page_;
   std::optional<double> pageTime_;
   std::string address_;
   std::optional<Mox::Loop::Fd> socket_;
   std::optional<Mox::Loop::FdWatcher> listening_;
   std::list<std::unique_ptr<Client>> clients_;
};

}
