// Network namespaces of a test. They have no name and leave nothing behind: the kernel
// removes one with the last process in it, however the test ends.
#pragma once

#include <memory>
#include <string>

#include "platform/loop/Loop.h"

namespace Netns {

// The reason why this process cannot make namespaces, or lacks `ip` to fill them,
// for skipping; empty if it can.
std::string notPermitted();

class Namespace {
 public:
   // Makes one with its loopback up. Throws std::system_error.
   Namespace();

   // The calling thread, and what it starts, is in the namespace while this lives;
   // sockets opened meanwhile stay in it.
   class Inside {
    public:
      explicit Inside( const Namespace& space );
      ~Inside();
      Inside( const Inside& ) = delete;
      Inside& operator=( const Inside& ) = delete;

    private:
      Mox::Loop::Fd former_;
   };

   // Runs ip(8) with these arguments in the namespace and returns its output.
   // Throws std::runtime_error with its message when it fails.
   std::string ip( const std::string& arguments ) const;

   // The path that ip(8) takes after "netns".
   std::string path() const;

 private:
   std::unique_ptr<Mox::Loop::Fd> file_;
};

// Connects "r0" of one namespace and "s0" of another, both up.
void connect( const Namespace& a, const std::string& nameA, const Namespace& b,
              const std::string& nameB );

}
