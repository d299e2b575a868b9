// Opening, closing and syncing: which file, what is logged, what a failure leaves.
//
// SPDX-License-Identifier: MIT

#include <groundwork/file.h>
#include <groundwork/log.h>
#include <groundwork/package.h>
#include <sys/stat.h>

#include <fstream>

#include "conf/conf_support.h"

using namespace test;

namespace {

std::string no_open(const std::string& path, const std::string& reason) {
  return warning_line("g_file", "can't open file '" + path + "' - " + reason);
}

TEST(ConfOpen, AMissingFileIsANewEmptyConfAndNotCreated) {
  const ConfFile file;
  LogCapture log(1);
  {
    const Conf conf = file.open();
    EXPECT_EQ(log.take(), Lines{"create new confing file - '" + file.path() + "'"});
    EXPECT_EQ(conf->sections, nullptr);
    EXPECT_EQ(conf->dirty, 0);
    EXPECT_STREQ(conf->filename, file.path().c_str());
    EXPECT_NE(conf->mutex, nullptr);
    ASSERT_NE(conf->callbacks, nullptr);
    EXPECT_EQ(g_hash_count(conf->callbacks), 0u);
    g_conf_sync(conf.get());
  }
  EXPECT_FALSE(file.exists());
}

TEST(ConfOpen, ANewFileIsCreatedByTheFirstWriteThatChangesSomething) {
  const ConfFile file;
  const mode_t mask = umask(022);
  {
    const Conf conf = file.open();
    g_conf_write_int(conf.get(), "s", "k", 1);
    EXPECT_FALSE(file.exists());
  }
  umask(mask);
  EXPECT_EQ(file.text(), "[s]\nk=1\n\n");
  struct stat status;
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST(ConfOpen, TheFileNameIsCopiedAndTracedAtLevelZero) {
  const ConfFile file("[a]\n");
  LogCapture log(0);
  std::string name = file.path();
  const Conf conf(g_conf_open(name.c_str()));
  EXPECT_EQ(log.take(), Lines{"g_conf:#: g_conf's file name = " + file.path()});
  name.assign(name.size(), 'x');
  EXPECT_EQ(conf->filename, file.path());
}

TEST(ConfOpen, ANewConfIsAnnouncedBeforeItsFileName) {
  const ConfFile file;
  for (const std::string& name : {file.path(), std::string(), std::string("/dev/null")}) {
    LogCapture log(0);
    const Conf conf(g_conf_open(name.c_str()));
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(log.take(), (Lines{"create new confing file - '" + name + "'",
                                 "g_conf:#: g_conf's file name = " + name}));
    EXPECT_EQ(conf->filename, name);
  }
}

TEST(ConfOpen, AnEmptyFileLoadsWithoutAComplaint) {
  const ConfFile file("");
  LogCapture log(1);
  const Conf conf = file.open();
  EXPECT_EQ(log.take(), Lines{});
}

TEST(ConfOpen, ALinkToAFileIsLoadedAndWrittenThrough) {
  const ConfFile file("[a]\nk=v\n");
  const std::string link = file.directory() / "link.conf";
  ASSERT_EQ(symlink("test.conf", link.c_str()), 0);
  {
    const Conf conf(g_conf_open(link.c_str()));
    EXPECT_EQ(content(conf.get()), (Sections{{"a", {{"k", "v"}}}}));
    g_conf_write_string(conf.get(), "a", "k", "w");
  }
  EXPECT_EQ(file.text(), "[a]\nk=w\n\n");
}

TEST(ConfOpen, ADirectoryIsNotAFileAndGivesANewConf) {
  const TemporaryDirectory directory;
  LogCapture log(1);
  GConf* const conf = g_conf_open(directory.path().c_str());
  ASSERT_NE(conf, nullptr);
  EXPECT_EQ(log.take(), Lines{"create new confing file - '" + directory.path() + "'"});
  g_conf_write_int(conf, "s", "k", 1);
  EXPECT_EQ(g_conf_close(conf), 0);
  EXPECT_EQ(log.take(), (Lines{no_open(directory.path(), "Is a directory"),
                               warning_line("g_conf", "can't create config file '" +
                                                          directory.path() + "'.")}));
}

TEST(ConfClose, NullIsReportedAndMinusOne) {
  LogCapture log;
  EXPECT_EQ(g_conf_close(nullptr), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
}

TEST(ConfClose, OfACleanConfLeavesTheFileAlone) {
  const ConfFile file("# comment\n[a]\nk = v\n");
  file.open().reset();
  EXPECT_EQ(file.text(), "# comment\n[a]\nk = v\n");
}

TEST(ConfClose, ReturnsZeroAlsoWhenTheFileCannotBeWritten) {
  const TemporaryDirectory directory;
  const std::string path = directory / "none/x.conf";
  GConf* const conf = g_conf_open(path.c_str());
  ASSERT_NE(conf, nullptr);
  g_conf_write_int(conf, "s", "k", 1);
  LogCapture log;
  EXPECT_EQ(g_conf_close(conf), 0);
  EXPECT_EQ(log.take(),
            (Lines{no_open(path, "No such file or directory"),
                   warning_line("g_conf", "can't create config file '" + path + "'.")}));
}

TEST(ConfSync, AProgramMaySetTheFlagToHaveTheFileWritten) {
  for (const int flag : {1, 2, -1}) {
    const ConfFile file("# comment\n[a]\nk = v\n");
    const Conf conf = file.open();
    conf->dirty = flag;
    g_conf_sync(conf.get());
    EXPECT_EQ(file.text(), "[a]\nk=v\n\n");
    EXPECT_EQ(conf->dirty, 0);
  }
}

TEST(ConfClose, AProgramMayClearTheFlagToLeaveTheFileAlone) {
  const ConfFile file("# comment\n[a]\nk = v\n");
  Conf conf = file.open();
  g_conf_write_string(conf.get(), "a", "k", "w");
  conf->dirty = 0;
  conf.reset();
  EXPECT_EQ(file.text(), "# comment\n[a]\nk = v\n");
}

TEST(ConfSync, TheModeOfAFileThatExistsIsKept) {
  const ConfFile file("[a]\nk=v\n");
  ASSERT_EQ(chmod(file.path().c_str(), 0600), 0);
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "a", "k", "w");
  g_conf_sync(conf.get());
  struct stat status;
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST(ConfSync, NullIsReported) {
  LogCapture log;
  g_conf_sync(nullptr);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
}

TEST(ConfSync, AFailedWriteIsNotTriedAgainBeforeTheNextChange) {
  const TemporaryDirectory directory;
  const std::string path = directory / "none/x.conf";
  const Conf conf(g_conf_open(path.c_str()));
  g_conf_write_int(conf.get(), "s", "k", 1);
  LogCapture log;
  g_conf_sync(conf.get());
  EXPECT_EQ(log.take().size(), 2u);
  EXPECT_EQ(conf->dirty, 0);
  EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"k", "1"}}}}));
  g_conf_sync(conf.get());
  EXPECT_EQ(log.take(), Lines{});
  ASSERT_EQ(mkdir((directory / "none").c_str(), 0755), 0);
  g_conf_sync(conf.get());
  EXPECT_NE(access(path.c_str(), F_OK), 0);
  g_conf_write_int(conf.get(), "s", "k", 2);
  g_conf_sync(conf.get());
  EXPECT_EQ(read_file(path), "[s]\nk=2\n\n");
}

TEST(ConfSync, ADeviceThatIsFullIsReportedForEachLineAndEndsWell) {
  const Conf conf(g_conf_open("/dev/full"));
  g_conf_write_int(conf.get(), "s", "k", 1);
  LogCapture log;
  g_conf_sync(conf.get());
  EXPECT_EQ(log.take(), Lines(3, warning_line("g_file", "No space left on device - 28.")));
  EXPECT_EQ(conf->dirty, 0);
}

TEST(ConfOpen, TwoConfsOfOneFileAreIndependentAndTheLastWins) {
  const ConfFile file("[a]\nk=0\n");
  Conf first = file.open();
  Conf second = file.open();
  g_conf_write_int(first.get(), "a", "k", 1);
  EXPECT_EQ(g_conf_read_int(second.get(), "a", "k", -1), 0);
  g_conf_write_int(second.get(), "a", "l", 2);
  first.reset();
  EXPECT_EQ(file.text(), "[a]\nk=1\n\n");
  second.reset();
  EXPECT_EQ(file.text(), "[a]\nk=0\nl=2\n\n");
}

TEST(ConfOpen, ChangesOfTheFileAfterOpeningAreNotSeen) {
  const ConfFile file("[a]\nk=0\n");
  const Conf conf = file.open();
  std::ofstream(file.path()) << "[a]\nk=1\n";
  EXPECT_EQ(g_conf_read_int(conf.get(), "a", "k", -1), 0);
}

// A package name of this process, so that its file in /etc is nobody's.
std::string own_package() {
  return "gw-" + std::to_string(getpid());
}

// A LogCapture takes the package name away; the paths stay.
void make_default_paths(const std::string& package) {
  LogCapture log;
  g_package_set_name(package.c_str());
  EXPECT_EQ(g_conf_open(nullptr), nullptr);
}

TEST(ConfOpenDefault, TheLocalFileIsLoaded) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    LogCapture log(0);
    g_package_set_name("app");
    directory.write("app.conf", "[a]\nk=v\n");
    {
      const Conf conf(g_conf_open(nullptr));
      ASSERT_NE(conf, nullptr);
      EXPECT_STREQ(conf->filename, "./app.conf");
      EXPECT_EQ(content(conf.get()), (Sections{{"a", {{"k", "v"}}}}));
      g_conf_write_string(conf.get(), "a", "k", "w");
    }
    EXPECT_EQ(read_file("app.conf"), "[a]\nk=w\n\n");
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, ALaterPackageNameDoesNotChangeThePaths) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    const std::string package = own_package();
    g_package_set_name(package.c_str());
    LogCapture log;
    g_package_set_name(package.c_str());
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    directory.write("other.conf", "[a]\n");
    g_package_set_name("other");
    log.take();
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[2].find("can't load config file '/etc/" + package + ".conf'."),
              std::string::npos)
        << lines[2];
    directory.write(package + ".conf", "[a]\n");
    const Conf conf(g_conf_open(nullptr));
    ASSERT_NE(conf, nullptr);
    EXPECT_EQ(conf->filename, "./" + package + ".conf");
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, EachPathIsMadeWhenItIsFirstNeeded) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    LogCapture log(3);
    g_package_set_name("first");
    const std::string local = directory.write("first.conf", "[a]\n");
    Conf(g_conf_open(nullptr)).reset();
    g_package_set_name(own_package().c_str());
    std::remove(local.c_str());
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[2].find("can't load config file '/etc/" + own_package() + ".conf'."),
              std::string::npos)
        << lines[2];
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, WithoutAFileThePathInEtcIsReportedAndNothingCreated) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    const std::string package = own_package();
    const std::string path = "/etc/" + package + ".conf";
    LogCapture log(0);
    g_package_set_name(package.c_str());
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    Lines lines = log.take();
    ASSERT_EQ(lines.size(), 3u);
    for (std::string& line : lines) {
      EXPECT_EQ(line.rfind(package + ": ", 0), 0u);
      line = line.substr(line.find("[WARNING] "));
    }
    EXPECT_EQ(lines,
              (Lines{"[WARNING] can't open file '" + path + "' - No such file or directory",
                     "[WARNING] can't open file '" + path + "'.",
                     "[WARNING] can't load config file '" + path + "'."}));
    EXPECT_NE(access((package + ".conf").c_str(), F_OK), 0);
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, ALocalFileThatDoesNotLoadIsReportedAndTheOneInEtcTried) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    ASSERT_EQ(chmod(directory.path().c_str(), 0755), 0);
    const std::string package = own_package();
    const std::string path = "/etc/" + package + ".conf";
    const std::string local = directory.write(package + ".conf", "[a]\n");
    ASSERT_EQ(chmod(local.c_str(), 0), 0);
    const uid_t user = geteuid();
    if (user == 0) {
      ASSERT_EQ(seteuid(65534), 0);  // no file is closed to root
    }
    const std::string local_path = "./" + package + ".conf";
    make_default_paths(package);
    LogCapture log(0);
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    EXPECT_EQ(log.take(),
              (Lines{no_open(local_path, "Permission denied"),
                     warning_line("g_conf", "can't open file '" + local_path + "'."),
                     no_open(path, "No such file or directory"),
                     warning_line("g_conf", "can't open file '" + path + "'."),
                     warning_line("g_conf", "can't load config file '" + path + "'.")}));
    ASSERT_EQ(seteuid(user), 0);
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, ADirectoryOfTheLocalNameIsPassedOverInSilence) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    const std::string package = own_package();
    const std::string path = "/etc/" + package + ".conf";
    ASSERT_EQ(mkdir((package + ".conf").c_str(), 0755), 0);
    make_default_paths(package);
    LogCapture log(0);
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    EXPECT_EQ(log.take(),
              (Lines{no_open(path, "No such file or directory"),
                     warning_line("g_conf", "can't open file '" + path + "'."),
                     warning_line("g_conf", "can't load config file '" + path + "'.")}));
    rmdir((package + ".conf").c_str());
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, TheFileInEtcIsLoadedAndWrittenWithoutALocalOne) {
  if (access("/etc", W_OK) != 0) GTEST_SKIP() << "may not write to /etc";
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    const std::string package = own_package();
    const std::string path = "/etc/" + package + ".conf";
    std::ofstream(path) << "[a]\nk=v\n";
    g_package_set_name(package.c_str());
    {
      const Conf conf(g_conf_open(nullptr));
      ASSERT_NE(conf, nullptr);
      EXPECT_EQ(conf->filename, path);
      g_conf_write_string(conf.get(), "a", "k", "w");
    }
    EXPECT_EQ(read_file(path), "[a]\nk=w\n\n");
    std::remove(path.c_str());
    // A directory of that name opens and does not read.
    ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
    LogCapture log;
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    EXPECT_EQ(log.take(),
              (Lines{warning_line("g_conf", "can't read file '" + path + "'."),
                     warning_line("g_conf", "can't load config file '" + path + "'.")}));
    rmdir(path.c_str());
    ASSERT_EQ(chdir("/"), 0);
  });
}

TEST(ConfOpenDefault, TheLongestPackageNameFits) {
  in_child([] {
    const TemporaryDirectory directory;
    ASSERT_EQ(chdir(directory.path().c_str()), 0);
    g_package_set_name("abcdefghijklmnopqrstuvwxyz");
    LogCapture log;
    g_package_set_name("abcdefghijklmnopqrst");
    EXPECT_EQ(g_conf_open(nullptr), nullptr);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_NE(lines[2].find("'/etc/abcdefghijklmnopqrst.conf'"), std::string::npos);
    ASSERT_EQ(chdir("/"), 0);
  });
}

}  // namespace
