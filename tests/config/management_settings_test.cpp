// The functions over the management settings file, under an /etc of their own (in_namespace): values, what is
// written, and every message.
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdarg>

#include "include/hbadiscovery.h"
#include "rmapi/rmapi.h"
#include "tests/support/Rows.h"

namespace {
std::string gs_Logged;
}  // namespace

// Instead of the provider's.
void rm_printf(const char* format, ...) {
  std::array<char, 1024> text{};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  gs_Logged += text.data();
}

namespace {

using std::string;
namespace fs = std::filesystem;

const string kLines = CONFIG_TESTS "/key_value_lines.txt";
const fs::path kPath = "/etc/varnix/quorbench/varnixRMConfig";
const fs::path kDiscPath = "/etc/varnix/quorbench/varnixDiscConfig";

class ManagementSettings : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(fs::exists(kPath.parent_path())) << "run this test through tests/system/in_namespace";
    umask(0);
  }
};

void Write(const string& text, const fs::path& path = kPath) {
  std::ofstream(path, std::ios::binary) << text;
}

string Read(const fs::path& path = kPath) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

string Logged() {
  return std::exchange(gs_Logged, "");
}

// Of a mount in this test's own namespace; false when the machine does not let it.
bool MakeReadOnly(const char* path, bool readOnly = true) {
  struct statvfs status {};
  if (statvfs(path, &status) != 0) return false;
  unsigned long flags = MS_REMOUNT | MS_BIND;
  flags |= status.f_flag & (MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOATIME | MS_NODIRATIME);
  if (readOnly) flags |= MS_RDONLY;
  return mount(nullptr, path, nullptr, flags, nullptr) == 0;
}

// The status of a getter and what is in its buffer; "#" when it left that as it was.
using Answer = std::pair<int, string>;

template <int (*kCall)(char*)>
Answer Text() {
  std::array<char, 258> text{'#'};
  const int status = kCall(text.data());
  return {status, text.data()};
}

template <int (*kCall)(int*)>
Answer Mode() {
  int mode = '#';
  const int status = kCall(&mode);
  return {status, mode == '#' ? "#" : std::to_string(mode)};
}

const struct {
  string key, defaultValue;
  Answer (*call)();
} kGetters[] = {
    {"LogFilePath:", "/var/opt/varnix/quorbench/logs/rm.log", Text<getLogFilePath>},
    {"InstallDir:", "/opt/varnix/quorbench/", Text<getInstallDirPath>},
    {"OptDir:", "/var/opt/varnix/quorbench", Text<getOptDirPath>},
    {"ConfFilePath:", "/etc/varnix/quorbench/rm.conf", Text<getIniFilePath>},
    {"ServerRemoteOperation:", "disabled", Mode<getServerOperatingMode>},
    {"ManagementHost:", "false", Mode<getManagementHostMode>},
    {"ExclusiveHostMgmnt:", "false", Mode<getExclusiveHostMgmnt>},
};

TEST_F(ManagementSettings, AnEmptyLineGivesTheDefault) {
  for (const auto& getter : kGetters) {
    // Without a newline at the end; then once more, because the reader stops at the empty line.
    string file = getter.key + "\nOther:1";
    Write(file);
    for (const char* separator : {"\n", ""}) {
      EXPECT_EQ(getter.call(), Answer(0, getter.defaultValue[0] == '/' ? getter.defaultValue : "0"));
      EXPECT_EQ(Read(), file += separator + getter.key + getter.defaultValue + "\n");
    }
  }
  EXPECT_EQ(Logged(), "");
}

TEST_F(ManagementSettings, Values) {
  for (const auto& [input, expected] : Rows(kLines, "management")) {
    const string settings = input.substr(0, input.rfind(" | "));
    const string key = input.substr(settings.size() + 3);
    Write(settings);
    const auto* getter =
        std::find_if(std::begin(kGetters), std::end(kGetters), [&](const auto& g) { return g.key == key; });
    ASSERT_NE(getter, std::end(kGetters)) << key;
    EXPECT_EQ(getter->call(), Answer(0, expected)) << settings;
    EXPECT_EQ(Read(), settings) << "read, not written";
  }
  for (const char* address : {"fe80::1", ""}) {
    Write(string("MngmtHostIpAddress:") + address + "\n");
    EXPECT_EQ(Text<getMgmntHostIpAddress>(), Answer(0, address));
  }
  std::array<char, 257> text{};
  text.fill('#');
  EXPECT_EQ(getInstallDirPath(text.data()), 200);
  Write("InstallDir:/a\n");
  EXPECT_EQ(getInstallDirPath(text.data()), 0);
  EXPECT_EQ(string(text.data(), text.size()), "/a" + string(254, '\0') + "#") << "256 bytes, all of them";
  EXPECT_EQ(getInstallDirPath(nullptr) + getManagementHostMode(nullptr) + getMgmntHostIpAddress(nullptr), 600);
}

int SetAddress(string address) {
  return setMgmntHostIpAddress(address.data());
}

const struct {
  string key, written;
  int (*call)();
  string name, readFailed;
} kSetters[] = {
    {"ManagementHost:", "false", [] { return setManagementHostMode(std::array{0}.data()); },
     "setManagementHostMode: call to ", "getKeyValue failed for 'management host' key\n"},
    {"ExclusiveHostMgmnt:", "true", [] { return setExclusiveHostMgmnt(std::array{-2}.data()); },
     "setExclusiveHostMgmnt: call to ", "getKeyValue failed for 'exclusive' key\n"},
    {"MngmtHostIpAddress:", "10.1.2.3", [] { return SetAddress("10.1.2.3"); },
     "setMgmntHostIpAddress: call to ", "getKeyValue failed for MngmtHostIpAddress key\n"},
};

TEST_F(ManagementSettings, SettersChangeALineThatIsThere) {
  for (const auto& setter : kSetters) {
    SCOPED_TRACE(setter.key);
    fs::remove(kPath);
    EXPECT_EQ(setter.call(), 200);
    EXPECT_FALSE(fs::exists(kPath));
    Write("Other:1\n");
    EXPECT_EQ(setter.call(), 200);
    EXPECT_EQ(Read(), "Other:1\n");
    EXPECT_EQ(Logged(), setter.name + setter.readFailed + setter.name + setter.readFailed);

    const string line = setter.key + setter.written + "\n";
    const std::array<string, 3> rows[] = {
        {"Other:1\n" + setter.key + "old", "Other:1\n" + line, "replaceKeyValue failed\n"},
        {setter.key + "\nOther:1", setter.key + "\nOther:1\n" + line, "setKeyValue failed\n"},
    };
    for (const auto& [before, after, failed] : rows) {
      Write(before);
      ASSERT_TRUE(MakeReadOnly("/etc"));
      EXPECT_EQ(setter.call(), 200);
      EXPECT_EQ(Logged(), setter.name + failed);
      ASSERT_TRUE(MakeReadOnly("/etc", false));
      EXPECT_EQ(setter.call(), 0);
      EXPECT_EQ(Read(), after);
    }
  }
  EXPECT_EQ(Logged(), "");
}

TEST_F(ManagementSettings, AReadOnlySystemHasNoRepository) {
  if (!MakeReadOnly("/")) GTEST_SKIP() << "the root cannot be made read-only here";
  EXPECT_EQ(Text<getRepository>(), Answer(0, "#"));
  EXPECT_FALSE(fs::exists(kPath));
}

TEST_F(ManagementSettings, ThePortComesFromTheDiscoverySettings) {
  unsigned short port = 0;
  EXPECT_EQ(getTcpPortNumber(&port), 178);
  EXPECT_EQ(port, 23333);
  EXPECT_EQ(Logged(), "\ngetTcpPortNumber: error on OPEN of " + kDiscPath.string() + " file.\n");
  alarm(60);  // a pipe is opened for ever
  ASSERT_EQ(mkfifo(kDiscPath.c_str(), 0600), 0);
  EXPECT_EQ(getTcpPortNumber(&port), 178);
  Logged();
  fs::remove(kDiscPath);
  auto rows = Rows(kLines, "port");
  // A line is read in pieces of 255 characters, and the word counts where it is whole.
  const string word = "TcpSocketPortNumber";
  rows.emplace_back(string(255 - word.size(), 'x') + word + ":2000\n", "0 23333");
  rows.emplace_back(string(256 - word.size(), 'x') + word + ":2000\n", "199 23333");
  for (const auto& [settings, expected] : rows) {
    Write(settings, kDiscPath);
    const int status = getTcpPortNumber(&port);
    EXPECT_EQ(std::to_string(status) + ' ' + std::to_string(port), expected) << settings;
    EXPECT_EQ(Logged() == "Port number must be greater than 1023 and less than 65536.\n", status == 107);
  }
}

}  // namespace
