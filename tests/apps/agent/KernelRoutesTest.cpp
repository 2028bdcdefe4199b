#include "apps/agent/KernelRoutes.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <system_error>

#include "apps/agent/Agent.h"
#include "apps/config/ConfigReader.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

// Lets the process open no more files: the kernel cannot be asked.
class NoFileLeft {
 public:
   NoFileLeft() {
      getrlimit( RLIMIT_NOFILE, &former_ );
      rlimit none = former_;
      none.rlim_cur = 0;
      setrlimit( RLIMIT_NOFILE, &none );
   }
   ~NoFileLeft() { setrlimit( RLIMIT_NOFILE, &former_ ); }

 private:
   rlimit former_{};
};

// The second request asks the kernel again and is not taken for done.
TEST( UnreadableRoutes, LeaveTheAgentAsItWas ) {
#ifdef PIMSM_SANITIZED
   GTEST_SKIP() << "the sanitizers open files to look at an object";
#endif
   const std::string config =
      "vrfs:\n"
      "- name: default\n"
      "  interfaces: [{name: lo, addresses: [127.0.0.1/8]}]\n";
   const std::string other = config + "  rpf: kernel\n";
   Mox::Test::TempRoot root;
   Mox::Loop loop;
   AgentOptions options;
   options.config = parseConfig( config, "test" );
   options.root = root.path();
   Agent agent( loop, std::move( options ) );
   for ( int tries = 0; tries < 2; ++tries ) {
      NoFileLeft limit;
      EXPECT_THROW( agent.configIs( parseConfig( other, "test" ) ),
                    std::system_error );
   }
   const FamilyInstance& family = *agent.families().front();
   EXPECT_FALSE( family.config().kernelRpf );
   agent.configIs( parseConfig( other, "test" ) );
   EXPECT_TRUE( family.config().kernelRpf );
   NoFileLeft limit;
   EXPECT_NO_THROW( agent.configIs( parseConfig( other, "test" ) ) )
      << "it is known";
}

}
}
