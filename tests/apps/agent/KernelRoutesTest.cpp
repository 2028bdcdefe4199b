#include "apps/agent/engine/KernelRoutes.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <system_error>

#include "apps/agent/Agent.h"
#include "apps/agent/config/ConfigReader.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

// The process may open no file more: the kernel cannot be asked.
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

class UnreadableRoutes : public testing::Test {
 protected:
   void SetUp() override {
#ifdef __SANITIZE_ADDRESS__
      GTEST_SKIP() << "the sanitizers open files to look at an object";
#endif
   }
};

// Who asks again asks the kernel again, and does not find it done.
TEST_F( UnreadableRoutes, AreNotTakenForRead ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   KernelRoutes routes( loop, clock, [] {} );
   {
      NoFileLeft limit;
      for ( int tries = 0; tries < 2; ++tries )
         EXPECT_THROW( routes.tablesAre( { KernelRoutes::mainTable } ),
                       std::system_error );
      EXPECT_NO_THROW( routes.tablesAre( {} ) );
   }
   EXPECT_NO_THROW( routes.tablesAre( { KernelRoutes::mainTable, 7 } ) );
   NoFileLeft limit;
   EXPECT_NO_THROW( routes.tablesAre( { KernelRoutes::mainTable } ) )
      << "it is known";
}

TEST_F( UnreadableRoutes, LeaveTheAgentAsItWas ) {
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
   {
      NoFileLeft limit;
      EXPECT_THROW( agent.configIs( parseConfig( other, "test" ) ),
                    std::system_error );
   }
   const FamilyInstance& family = *agent.families().front();
   EXPECT_FALSE( family.config().kernelRpf );
   agent.configIs( parseConfig( other, "test" ) );
   EXPECT_TRUE( family.config().kernelRpf );
}

}
}
