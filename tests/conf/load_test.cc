// What a text loads as, and what is logged when it cannot be loaded.
//
// SPDX-License-Identifier: MIT

#include <fcntl.h>
#include <sys/stat.h>

#include <csignal>

#include "conf/conf_support.h"
#include "conf/own_locale.h"
#include "support/ended_thread.h"

using namespace test;

namespace {

TEST(ConfLoad, AnEmptyFileHasNoSections) {
  EXPECT_EQ(loaded(""), Sections{});
  EXPECT_EQ(loaded("\n\n\n"), Sections{});
}

TEST(ConfLoad, SectionsAndKeysKeepTheirOrder) {
  EXPECT_EQ(loaded("[b]\nz=1\na=2\n[a]\nk=v\n[c]\n"),
            (Sections{{"b", {{"z", "1"}, {"a", "2"}}}, {"a", {{"k", "v"}}}, {"c", {}}}));
}

TEST(ConfLoad, TheLastLineNeedsNoNewline) {
  EXPECT_EQ(loaded("[a]\nk=v"), (Sections{{"a", {{"k", "v"}}}}));
  EXPECT_EQ(loaded("[a]"), (Sections{{"a", {}}}));
}

TEST(ConfLoad, BlanksAroundKeyAndValueAreTrimmedAndThoseInsideKept) {
  EXPECT_EQ(loaded("[n]\n \t\v\f\rip a \t= 10.0 0.1 \r\v\f\t\n"),
            (Sections{{"n", {{"ip a", "10.0 0.1"}}}}));
}

TEST(ConfLoad, BytesAbove127AreNoBlanks) {
  EXPECT_EQ(loaded("[n]\n\xa0k\x85=\x85v\xa0\n"),
            (Sections{{"n", {{"\xa0k\x85", "\x85v\xa0"}}}}));
}

TEST(ConfLoad, ACarriageReturnBeforeTheNewlineIsTrimmed) {
  EXPECT_EQ(loaded("[a]\r\nk=v\r\n\r\n[b]\r\nx=\r\n"),
            (Sections{{"a", {{"k", "v"}}}, {"b", {{"x", ""}}}}));
}

TEST(ConfLoad, TheFirstEqualsSignSeparates) {
  EXPECT_EQ(loaded("[s]\nkey==x\na=b=c=\n"),
            (Sections{{"s", {{"key", "=x"}, {"a", "b=c="}}}}));
}

TEST(ConfLoad, AKeyAndAValueMayBeEmpty) {
  EXPECT_EQ(loaded("[s]\n=v\nk=\n  =  \n"), (Sections{{"s", {{"", ""}, {"k", ""}}}}));
}

TEST(ConfLoad, LinesWithoutEqualsSignAreIgnored) {
  EXPECT_EQ(loaded("[s]\nmask\n   \n\nk=v\n"), (Sections{{"s", {{"k", "v"}}}}));
}

TEST(ConfLoad, LinesBeforeTheFirstSectionAreDroppedAndGoneAfterAWrite) {
  const ConfFile file("k=v\n[s]\na=1\n");
  {
    const Conf conf = file.open();
    EXPECT_EQ(content(conf.get()), (Sections{{"s", {{"a", "1"}}}}));
    g_conf_write_string(conf.get(), "s", "a", "2");
  }
  EXPECT_EQ(file.text(), "[s]\na=2\n\n");
}

TEST(ConfLoad, OnlyAHashInTheFirstColumnIsAComment) {
  EXPECT_EQ(loaded("[s]\n#a=1\n #x=y\nk=#v\n"),
            (Sections{{"s", {{"#x", "y"}, {"k", "#v"}}}}));
}

TEST(ConfLoad, AnIndentedHeaderIsNotAHeader) {
  EXPECT_EQ(loaded("[s]\n  [x]\n [y] z = 1\nk=v\n"),
            (Sections{{"s", {{"[y] z", "1"}, {"k", "v"}}}}));
  EXPECT_EQ(loaded("  [x]\nk=v\n"), Sections{});
}

TEST(ConfLoad, AHeaderWithoutClosingBracketIsIgnoredAndTheSectionGoesOn) {
  EXPECT_EQ(loaded("[s]\n[a\nk=v\n"), (Sections{{"s", {{"k", "v"}}}}));
  EXPECT_EQ(loaded("[a\nk=v\n"), Sections{});
}

TEST(ConfLoad, AnUnclosedHeaderIsNoKeyEvenWithAnEqualsSign) {
  EXPECT_EQ(loaded("[s]\n[a=1\n"), (Sections{{"s", {}}}));
}

TEST(ConfLoad, TheFirstClosingBracketEndsTheNameAndTheRestIsIgnored) {
  EXPECT_EQ(loaded("[a]b]\n[c] k=v\n[[d]]\n[]\n"),
            (Sections{{"a", {}}, {"c", {}}, {"[d", {}}, {"", {}}}));
}

TEST(ConfLoad, BlanksInASectionNameAreKept) {
  EXPECT_EQ(loaded("[ a ]\n[a]\n"), (Sections{{" a ", {}}, {"a", {}}}));
}

TEST(ConfLoad, ASectionThatComesAgainInAnyCaseContinuesTheFirst) {
  EXPECT_EQ(loaded("[Main]\nPort=1\n[b]\nk=v\n[MAIN]\nport=2\nnew=3\n"),
            (Sections{{"Main", {{"Port", "2"}, {"new", "3"}}}, {"b", {{"k", "v"}}}}));
}

TEST(ConfLoad, OnlyTheLettersAToZHaveCaseWhateverTheLocale) {
  const std::string text = "[\xc4]\nk\xd6=1\n[\xe4]\n[a[]\n[a{]\n[@]\n[`]\nZ=1\nz=2\n";
  const Sections expected = {
      {"\xc4", {{"k\xd6", "1"}}}, {"\xe4", {}}, {"a[", {}}, {"a{", {}}, {"@", {}},
      {"`", {{"Z", "2"}}}};
  EXPECT_EQ(loaded(text), expected);
  const OwnLocale locale;
  if (!locale.is_chosen()) GTEST_SKIP() << "no locale but C";
  EXPECT_EQ(loaded(text), expected);
}

TEST(ConfLoad, ANulByteEndsTheText) {
  using std::string_view_literals::operator""sv;
  EXPECT_EQ(loaded("[a]\nk=v\0w\nx=y\n[b]\n"sv), (Sections{{"a", {{"k", "v"}}}}));
  EXPECT_EQ(loaded("\0[a]\n"sv), Sections{});
}

TEST(ConfLoad, ALineHasNoLimit) {
  const std::string key(100000, 'k');
  const std::string value(1000000, 'v');
  EXPECT_EQ(loaded("[" + key + "]\n" + key + " = " + value + "\n"),
            (Sections{{key, {{key, value}}}}));
}

TEST(ConfLoad, TheExampleLoadsAndIsWrittenBackAsItsModel) {
  const ConfFile file("# net\n[Net]\n ip = 10.0.0.1 \nmask\n[net]\nport=80\n");
  {
    const Conf conf = file.open();
    EXPECT_EQ(content(conf.get()),
              (Sections{{"Net", {{"ip", "10.0.0.1"}, {"port", "80"}}}}));
    g_conf_write_string(conf.get(), "NET", "IP", "10.0.0.2");
    g_conf_write_string(conf.get(), "NET", "IP", "10.0.0.1");
  }
  EXPECT_EQ(file.text(), "[Net]\nip=10.0.0.1\nport=80\n\n");
}

TEST(ConfLoad, AFileThatCannotBeOpenedIsReportedWithItsPath) {
  in_child([] {
    const ConfFile file("[a]\n");
    ASSERT_EQ(chmod(file.directory().path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(file.path().c_str(), 0), 0);
    const uid_t user = geteuid();
    if (user == 0) {
      ASSERT_EQ(seteuid(65534), 0);  // no file is closed to root
    }
    LogCapture log;
    EXPECT_EQ(g_conf_open(file.path().c_str()), nullptr);
    EXPECT_EQ(
        log.take(),
        (Lines{warning_line("g_file",
                            "can't open file '" + file.path() + "' - Permission denied"),
               warning_line("g_conf", "can't open file '" + file.path() + "'."),
               warning_line("g_conf", "can't load config file '" + file.path() + "'.")}));
    ASSERT_EQ(seteuid(user), 0);
  });
}

// Holds a lock of another process on a file while alive.
class ForeignLock {
 public:
  ForeignLock(const std::string& path, short type) {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    child_ = fork();
    if (child_ == 0) {
      const int descriptor = open(path.c_str(), O_RDWR);
      struct flock lock = {};
      lock.l_type = type;
      lock.l_whence = SEEK_SET;
      const char locked = fcntl(descriptor, F_SETLK, &lock) == 0 ? 'y' : 'n';
      if (write(ready[1], &locked, 1) != 1) _exit(1);
      for (;;) pause();
    }
    char locked = 'n';
    EXPECT_EQ(read(ready[0], &locked, 1), 1);
    EXPECT_EQ(locked, 'y');
    close(ready[0]);
    close(ready[1]);
  }
  ~ForeignLock() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }

 private:
  pid_t child_;
};

TEST(ConfLoad, AFileLockedForWritingIsReportedWithoutTheClosingQuote) {
  const ConfFile file("[a]\nk=v\n");
  const ForeignLock lock(file.path(), F_WRLCK);
  LogCapture log;
  EXPECT_EQ(g_conf_open(file.path().c_str()), nullptr);
  EXPECT_EQ(
      log.take(),
      (Lines{warning_line("g_conf", "can't read lock for '" + file.path() + "."),
             warning_line("g_conf", "can't load config file '" + file.path() + "'.")}));
}

TEST(ConfLoad, AFileLockedForReadingLoads) {
  const ConfFile file("[a]\nk=v\n");
  const ForeignLock lock(file.path(), F_RDLCK);
  EXPECT_EQ(content(file.open().get()), (Sections{{"a", {{"k", "v"}}}}));
}

TEST(ConfStore, AFileLockedByAnotherProcessIsReportedAndAlreadyEmptied) {
  const ConfFile file("[a]\nk=v\n");
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "a", "k", "w");
  {
    const ForeignLock lock(file.path(), F_RDLCK);
    LogCapture log;
    g_conf_sync(conf.get());
    EXPECT_EQ(log.take(),
              Lines{warning_line("g_conf", "can't lock write for '" + file.path() + "'.")});
    EXPECT_EQ(file.text(), "");
    EXPECT_EQ(conf->dirty, 0);
  }
  EXPECT_EQ(content(conf.get()), (Sections{{"a", {{"k", "w"}}}}));
}

TEST(ConfLoad, AThreadThatEndsWhileALockIsReportedLosesNothing) {
  const ConfFile file("[a]\nk=v\n");
  const ForeignLock lock(file.path(), F_WRLCK);
  expect_nothing_lost_at_a_message([&file] { g_conf_open(file.path().c_str()); });
}

TEST(ConfStore, AThreadThatEndsWhileAFailureIsLoggedLosesNothing) {
  const ConfFile locked;
  for (const std::string path : {locked.path().c_str(), "/dev/full"}) {
    GConf* const conf = g_conf_open(path.c_str());
    g_conf_write_string(conf, "a", "k", "v");
    if (path == locked.path()) locked.rewrite("");
    const ForeignLock lock(locked.path(), F_RDLCK);
    expect_nothing_lost_at_a_message([conf] { g_conf_sync(conf); });
    conf->dirty = 0;
    g_conf_close(conf);
  }
}

TEST(ConfLoad, AThreadThatEndsWhenTheFileIsLoadedLosesNothing) {
  const ConfFile file("[a]\nk=v\n");
  const LogCapture log(G_LOG_DEBUG);
  expect_nothing_lost_at_a_message([&file] { g_conf_open(file.path().c_str()); });
}

TEST(ConfStore, AThreadThatEndsWhileAConfIsClosedLosesNothing) {
  const LogCapture log(G_LOG_WARNING);  // the first message is that of the failed write
  expect_nothing_lost_at_a_message([] {
    GConf* const conf = g_conf_open("/dev/full");
    g_conf_write_string(conf, "a", "k", "v");
    g_conf_close(conf);
  });
}

TEST(ConfLoad, NoLockAndNoDescriptorIsLeaked) {
  const ConfFile file("[a]\nk=v\n");
  const int before = dup(0);
  close(before);
  const Conf conf = file.open();
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
  // Another process may lock it for writing while the conf is open.
  const ForeignLock lock(file.path(), F_WRLCK);
}

}  // namespace
