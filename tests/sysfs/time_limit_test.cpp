// A host that hangs behind a host that does not.
#include <gmock/gmock.h>

#include "provider/sysfs/TimeLimitedHost.h"
#include "tests/support/Testing.h"
#include "tests/sysfs/Describe.h"

namespace sysfs_test {

using provider::Answer;
using provider::Attributes;
using provider::Board;
using provider::Host;
using provider::IscsiNames;
using provider::ListAnswer;
using provider::Wwn;
using testing::Return;

namespace {

const Wwn kSick = Name(1);
const Wwn kHealthy = Name(2);
constexpr unsigned int kSickBoard = 1;

constexpr std::chrono::milliseconds kShort{500};  // healthy calls keep it also on a loaded machine
constexpr std::chrono::seconds kLong{20};

// Says when what is derived from it is gone, with all its members.
class Leaving {
 public:
  std::future<void> Gone() { return m_IsGone.get_future(); }

 protected:
  ~Leaving() { m_IsGone.set_value(); }

 private:
  std::promise<void> m_IsGone;
};

class AskedHost final : public Leaving, public Host {
 public:
  MOCK_METHOD(ListAnswer<unsigned int>, BoardInstances, (), (override));
  MOCK_METHOD(Answer<Board>, ReadBoard, (unsigned int), (override));
  MOCK_METHOD(bool, HasPort, (const Wwn&), (override));
  MOCK_METHOD(bool, IsMakersPort, (const Wwn&), (override));
  MOCK_METHOD(Answer<Attributes>, DiscoveryAttributes, (const Wwn&), (override));
  MOCK_METHOD(Answer<Attributes>, HbaAttributes, (const Wwn&), (override));
  MOCK_METHOD(Answer<Attributes>, PortAttributes, (const Wwn&), (override));
  MOCK_METHOD(Answer<Attributes>, ServerAttributes, (const Wwn&), (override));
  MOCK_METHOD(Answer<std::uint32_t>, DriverType, (const Wwn&), (override));
  MOCK_METHOD(Answer<std::uint32_t>, BindType, (const Wwn&), (override));
  MOCK_METHOD(Answer<IscsiNames>, InitiatorProperties, (const Wwn&), (override));
  MOCK_METHOD(ListAnswer<RM_NodeInfoEntry>, Nodes, (const Wwn&), (override));
  MOCK_METHOD(ListAnswer<RM_VPortEntry>, VirtualPorts, (const Wwn&), (override));
  MOCK_METHOD(ListAnswer<RM_VPortTargetEntry>, VirtualPortTargets, (const Wwn&, const Wwn&), (override));
  MOCK_METHOD(ListAnswer<_RM_ISCSI_TARGET>, IscsiTargets, (const Wwn&, bool), (override));
  MOCK_METHOD(ListAnswer<HBA_NAME>, VirtualFunctions, (const Wwn&), (override));
  MOCK_METHOD(Answer<bool>, SecureManagement, (), (override));
};

}  // namespace

class TimeLimit : public testing::Test {
 protected:
  // What a call left behind ends when the gate opens; it must not outlast the test.
  void TearDown() override {
    Open();
    m_Limited.reset();
    const std::future<void> gone = m_Asked->Gone();
    m_Asked.reset();
    EXPECT_EQ(gone.wait_for(kLong), std::future_status::ready);
  }

  void Limit(std::chrono::milliseconds limit) {
    m_Limited = std::make_unique<provider::TimeLimitedHost>(m_Asked, limit);
  }
  void Open() {
    if (!std::exchange(m_IsOpen, true)) m_Gate.set_value();
  }
  // A call that hangs while the gate is shut.
  template <class Result>
  auto Hang(const Result& result) {
    return [opened = m_Opened, result] {
      opened.wait();
      return result;
    };
  }

  std::promise<void> m_Gate;
  const std::shared_future<void> m_Opened = m_Gate.get_future().share();
  bool m_IsOpen = false;
  std::shared_ptr<AskedHost> m_Asked = std::make_shared<AskedHost>();
  std::unique_ptr<Host> m_Limited;
};

TEST_F(TimeLimit, OneSickPortHoldsUpNobodyElse) {
  Limit(kShort);
  // The one call that is left behind is enough, the others are not even asked.
  EXPECT_CALL(*m_Asked, Nodes(kSick)).WillOnce(Hang(ListAnswer<RM_NodeInfoEntry>{}));
  EXPECT_CALL(*m_Asked, VirtualPorts).Times(0);
  EXPECT_CALL(*m_Asked, HasPort).Times(0);
  EXPECT_CALL(*m_Asked, Nodes(kHealthy))
      .WillOnce(Return(ListAnswer<RM_NodeInfoEntry>{RM_STATUS_OK, {{}, {}}, std::nullopt}));
  EXPECT_EQ(m_Limited->Nodes(kSick).status, RM_STATUS_LOCKED);
  EXPECT_TRUE(m_Limited->Nodes(kSick).records.empty());
  EXPECT_EQ(m_Limited->VirtualPorts(kSick).status, RM_STATUS_LOCKED);
  EXPECT_FALSE(m_Limited->HasPort(kSick));
  EXPECT_EQ(m_Limited->Nodes(kHealthy).records.size(), 2u);
}

TEST_F(TimeLimit, APortIsAskedAgainWhenTheOverdueCallIsOver) {
  Limit(kShort);
  const Answer<Board> hot{RM_STATUS_OVER_TEMPERATURE, {}};
  EXPECT_CALL(*m_Asked, ReadBoard(kSickBoard)).WillRepeatedly(Hang(hot));
  EXPECT_CALL(*m_Asked, ReadBoard(kSickBoard + 1)).WillOnce(Return(hot));
  EXPECT_EQ(m_Limited->ReadBoard(kSickBoard).status, RM_STATUS_LOCKED);
  EXPECT_EQ(m_Limited->ReadBoard(kSickBoard + 1).status, RM_STATUS_OVER_TEMPERATURE);
  Open();
  const auto deadline = std::chrono::steady_clock::now() + kLong;
  int status = RM_STATUS_LOCKED;
  while (status == RM_STATUS_LOCKED && std::chrono::steady_clock::now() < deadline) {
    status = m_Limited->ReadBoard(kSickBoard).status;
    std::this_thread::yield();
  }
  EXPECT_EQ(status, RM_STATUS_OVER_TEMPERATURE);
}

TEST_F(TimeLimit, AHostThatThrowsIsTryAgain) {
  Limit(kLong);
  const auto fail = testing::Throw(std::runtime_error("no memory"));
  EXPECT_CALL(*m_Asked, Nodes(kHealthy)).WillOnce(fail);
  EXPECT_CALL(*m_Asked, HasPort(kHealthy)).WillOnce(fail);
  EXPECT_EQ(m_Limited->Nodes(kHealthy).status, RM_STATUS_LOCKED);
  EXPECT_FALSE(m_Limited->HasPort(kHealthy));
}

}  // namespace sysfs_test
