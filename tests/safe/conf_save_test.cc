// What a save does to the text of a file, and when it refuses.
//
// SPDX-License-Identifier: MIT

#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>

#include "safe/conf_support.h"
#include "safe/file_support.h"
#include "support/allocation_faults.h"
#include "support/next_function.h"

using namespace test;

namespace {

// What comes before a directory is locked; it is given the directory's descriptor.
void (*on_flock)(int descriptor) = nullptr;

}  // namespace

extern "C" int flock(int descriptor, int operation) noexcept {
  static const auto real = next_function<int(int, int)>("flock");
  if (on_flock != nullptr) on_flock(descriptor);
  return real(descriptor, operation);
}

namespace {

// Values.

TEST(ConfSaveText, AChangedValueKeepsKeyBlanksAndLineEnd) {
  EXPECT_EQ(
      saved("[s]\n k \t=\t 1 2 \r\nl=2\n", [](GConf* conf) { set(conf, "s", "k", "9"); }),
      "[s]\n k \t=\t 9\r\nl=2\n");
}

TEST(ConfSaveText, AnEmptyValueMayGetOneAndAValueMayGo) {
  EXPECT_EQ(saved("[s]\na=\r\nb= \t\r\nc = 3 \n",
                  [](GConf* conf) {
                    set(conf, "s", "a", "1");
                    set(conf, "s", "b", "2");
                    set(conf, "s", "c", "");
                  }),
            "[s]\na=1\r\nb= \t2\r\nc = \n");
}

TEST(ConfSaveText, CommentsBlankLinesAndLinesBeforeTheFirstSectionStay) {
  const std::string head = "\xEF\xBB\xBF; file\n x = 0\n\n#c\n";
  const std::string tail = "\n# [t]\n;k=3\n[open\nword\n \t\n\r\n";
  EXPECT_EQ(
      saved(head + "[s] rest\nk=1" + tail, [](GConf* conf) { set(conf, "s", "k", "2"); }),
      head + "[s] rest\nk=2" + tail);
}

TEST(ConfSaveText, UnchangedLinesKeepSpellingSpacesAndEveryByte) {
  EXPECT_EQ(saved("[S]\n Key  =  v\xFF\x01 \t\nl=1\r\n[s]\n\tm=a=b # c\r\n",
                  [](GConf* conf) { set(conf, "s", "L", "2"); }),
            "[S]\n Key  =  v\xFF\x01 \t\nl=2\r\n[s]\n\tm=a=b # c\r\n");
}

TEST(ConfSaveText, OfAKeyGivenSeveralTimesTheLineThatLoadingTakesChanges) {
  EXPECT_EQ(saved("[s]\nk=1\nK=2\n[t]\n[S]\n k = 3\n#k=4\n",
                  [](GConf* conf) { set(conf, "s", "k", "1"); }),
            "[s]\nk=1\nK=2\n[t]\n[S]\n k = 1\n#k=4\n");
}

TEST(ConfSaveText, ACarriageReturnInsideAValueIsNoLineEnd) {
  EXPECT_EQ(saved("[s]\nk=a\rb\nl=c\rd\n",
                  [](GConf* conf) {
                    set(conf, "s", "k", "1");
                    set(conf, "s", "l", "x\ry");
                    set(conf, "s", "m", "\r2\r3\r");
                  }),
            "[s]\nk=1\nl=x\ry\nm=2\r3\n");
}

TEST(ConfSaveText, AKeyThatOnlyABlankKeepsFromBeingACommentCanChange) {
  EXPECT_EQ(saved("[s]\n #k=1\n [x]=2\n",
                  [](GConf* conf) {
                    set(conf, "s", "#k", "3");
                    set(conf, "s", "[x]", "4");
                  }),
            "[s]\n #k=3\n [x]=4\n");
}

// Removals.

TEST(ConfSaveText, ARemovedKeyTakesAllItsLinesAlong) {
  EXPECT_EQ(saved("[s]\nk=1\n#c\nK=2\nl=3\n[t]\nk=4\n[s]\n k=5\n",
                  [](GConf* conf) { g_conf_remove_key(conf, "s", "k"); }),
            "[s]\n#c\nl=3\n[t]\nk=4\n[s]\n");
}

TEST(ConfSaveText, ARemovedSectionTakesItsHeadersAndEntriesButNoComment) {
  EXPECT_EQ(saved("#1\n[s]\n#2\nk=1\nword\n[t]\nk=4\n[S] x\nl=5\n\n",
                  [](GConf* conf) { g_conf_remove_section(conf, "s"); }),
            "#1\n#2\nword\n[t]\nk=4\n\n");
}

TEST(ConfSaveText, AnEmptiedSectionKeepsItsHeader) {
  EXPECT_EQ(
      saved("[s]\nk=1\n[t]\nl=2\n", [](GConf* conf) { g_conf_remove_key(conf, "s", "k"); }),
      "[s]\n[t]\nl=2\n");
}

TEST(ConfSaveText, WhatWasRemovedAndWrittenAgainWithItsValueKeepsItsLine) {
  EXPECT_EQ(saved("[S]\n K = 1 \n#c\n\tl=2\n",
                  [](GConf* conf) {
                    g_conf_remove_section(conf, "s");
                    set(conf, "s", "l", "2");
                    set(conf, "s", "k", "1");
                  }),
            "[S]\n K = 1 \n#c\n\tl=2\n");
}

TEST(ConfSaveText, WithoutItsKeysAFileKeepsItsComments) {
  EXPECT_EQ(
      saved("#a\n[s]\nk=1\n#b", [](GConf* conf) { g_conf_remove_section(conf, "s"); }),
      "#a\n#b");
  EXPECT_EQ(saved("[s]\nk=1", [](GConf* conf) { g_conf_remove_section(conf, "s"); }), "");
}

// New keys.

TEST(ConfSaveText, NewKeysFollowTheLastEntryOfTheLastPartInTheOrderOfTheModel) {
  EXPECT_EQ(saved("[s]\na=1\n#1\n[t]\nb=2\n[S]\nc=3\n# 2\n\n[u]\nd=4\n",
                  [](GConf* conf) {
                    set(conf, "s", "z", "5");
                    set(conf, "t", "x", "6");
                    set(conf, "s", "y", " 7 ");
                  }),
            "[s]\na=1\n#1\n[t]\nb=2\nx=6\n[S]\nc=3\nz=5\ny=7\n# 2\n\n[u]\nd=4\n");
}

TEST(ConfSaveText, NewKeysFollowTheHeaderOfALastPartWithoutEntries) {
  EXPECT_EQ(
      saved("[s]\na=1\n[t]\n[s]\n#c\n", [](GConf* conf) { set(conf, "s", "b", "2"); }),
      "[s]\na=1\n[t]\n[s]\nb=2\n#c\n");
}

TEST(ConfSaveText, ThePlaceOfNewKeysIsFoundBeforeLinesAreRemoved) {
  EXPECT_EQ(saved("[s]\na=1\n#1\nb=2\n#2\n",
                  [](GConf* conf) {
                    g_conf_remove_key(conf, "s", "b");
                    set(conf, "s", "c", "3");
                  }),
            "[s]\na=1\n#1\nc=3\n#2\n");
}

TEST(ConfSaveText, ANewKeyGetsTheLineEndOfTheLineAbove) {
  EXPECT_EQ(saved("[s]\r\na=1\nb=2\r\n#c\n[t]\nx=1\n#d\r\n",
                  [](GConf* conf) {
                    set(conf, "s", "c", "3");
                    set(conf, "t", "y", "4");
                  }),
            "[s]\r\na=1\nb=2\r\nc=3\r\n#c\n[t]\nx=1\ny=4\n#d\r\n");
}

TEST(ConfSaveText, AKeyWithoutANameMayBeNew) {
  EXPECT_EQ(saved("[]\na=1\n", [](GConf* conf) { set(conf, "", "", "2"); }),
            "[]\na=1\n=2\n");
}

// New sections.

TEST(ConfSaveText, NewSectionsComeLastWithAnEmptyLineBeforeEach) {
  EXPECT_EQ(saved("[s]\na=1\n#c\n",
                  [](GConf* conf) {
                    set(conf, "t", "x", "1");
                    set(conf, "u", "y", "2");
                    set(conf, "t", "z", "3");
                  }),
            "[s]\na=1\n#c\n\n[t]\nx=1\nz=3\n\n[u]\ny=2\n");
}

TEST(ConfSaveText, NoSecondEmptyLineComesBeforeANewSection) {
  for (const std::string text : {"[s]\na=1\n\n", "\n", "[s]\na=1\r\n\r\n", "\r\n"}) {
    const std::string newline = text.find('\r') != std::string::npos ? "\r\n" : "\n";
    EXPECT_EQ(saved(text, [](GConf* conf) { set(conf, "t", "x", "1"); }),
              text + "[t]" + newline + "x=1" + newline);
  }
}

TEST(ConfSaveText, ALineOfBlanksIsNotEmpty) {
  EXPECT_EQ(saved("[s]\na=1\n \n", [](GConf* conf) { set(conf, "t", "x", "1"); }),
            "[s]\na=1\n \n\n[t]\nx=1\n");
}

TEST(ConfSaveText, AnEmptyFileGetsNoEmptyLine) {
  EXPECT_EQ(saved("", [](GConf* conf) { set(conf, "t", "x", "1"); }), "[t]\nx=1\n");
}

TEST(ConfSaveText, ANewSectionTakesTheLineEndOfTheLastLineEvenIfThatGoes) {
  EXPECT_EQ(saved("[s]\na=1\r\n",
                  [](GConf* conf) {
                    g_conf_remove_section(conf, "s");
                    set(conf, "t", "x", "1");
                  }),
            "[t]\r\nx=1\r\n");
}

TEST(ConfSaveText, EmptySectionsOfTheModelAreNotWritten) {
  EXPECT_EQ(saved("[s]\na=1\n",
                  [](GConf* conf) {
                    set(conf, "t", "x", "1");
                    g_conf_remove_key(conf, "t", "x");
                    set(conf, "u", "y", "2");
                  }),
            "[s]\na=1\n\n[u]\ny=2\n");
}

// The end of the text.

TEST(ConfSaveText, ALastLineWithoutLineEndStaysSoWhenNothingFollows) {
  EXPECT_EQ(saved("[s]\nk = 1", [](GConf* conf) { set(conf, "s", "k", "2"); }),
            "[s]\nk = 2");
  EXPECT_EQ(saved("[s]\r\nk=1\r\n#", [](GConf* conf) { set(conf, "s", "l", "2"); }),
            "[s]\r\nk=1\r\nl=2\r\n#");
}

TEST(ConfSaveText, ALastLineWithoutLineEndGetsOneAndTheNewLastLineHasNone) {
  EXPECT_EQ(saved("[s]\nk=1", [](GConf* conf) { set(conf, "s", "l", "2"); }),
            "[s]\nk=1\nl=2");
  EXPECT_EQ(saved("[s]\r\nk=1",
                  [](GConf* conf) {
                    set(conf, "s", "l", "2");
                    set(conf, "t", "x", "3");
                  }),
            "[s]\r\nk=1\r\nl=2\r\n\r\n[t]\r\nx=3");
  EXPECT_EQ(saved("#only", [](GConf* conf) { set(conf, "t", "x", "1"); }),
            "#only\n\n[t]\nx=1");
  EXPECT_EQ(saved("[t]", [](GConf* conf) { set(conf, "t", "x", "1"); }), "[t]\nx=1");
}

TEST(ConfSaveText, WhatTakesThePlaceOfALastLineWithoutLineEndHasNoneEither) {
  EXPECT_EQ(saved("[s]\nk=1\nl=2",
                  [](GConf* conf) {
                    g_conf_remove_key(conf, "s", "l");
                    set(conf, "s", "m", "3");
                  }),
            "[s]\nk=1\nm=3");
}

TEST(ConfSaveText, WhenALastLineWithoutLineEndGoesTheOneAboveStaysAsItIs) {
  EXPECT_EQ(saved("[s]\nk=1\nl=2", [](GConf* conf) { g_conf_remove_key(conf, "s", "l"); }),
            "[s]\nk=1\n");
}

// Without a file.

TEST(ConfSave, AConfOpenedWithoutAFileIsWrittenFromNothing) {
  const ConfFile file;
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "1");
  set(conf.get(), "t", "b", "2");
  set(conf.get(), "s", "c", "3");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "[s]\na=1\nc=3\n\n[t]\nb=2\n");
  EXPECT_EQ(conf->dirty, 0);
}

TEST(ConfSave, AConfOpenedWithoutAFileTakesAnEmptyOneForNone) {
  const ConfFile file;
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "1");
  file.rewrite("");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "[s]\na=1\n");
}

TEST(ConfSave, AConfOpenedWithoutAFileAndEmptiedAgainMakesAnEmptyOne) {
  const ConfFile file;
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "1");
  g_conf_remove_key(conf.get(), "s", "a");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "");
}

// Results.

TEST(ConfSave, ANullConfReportsTheCheckAndReturnsMinusOne) {
  LogCapture log;
  errno = 0;
  EXPECT_EQ(g_conf_save(nullptr, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.take(), Lines{check_line("g_conf", "conf != NULL")});
}

TEST(ConfSave, ACleanConfReadsAndWritesNothing) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  file.rewrite("changed by another");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  EXPECT_EQ(file.text(), "changed by another");
  file.remove();
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  EXPECT_FALSE(file.exists());
}

TEST(ConfSave, SavesFollowEachOtherAndSyncs) {
  const ConfFile file("#c\n[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  set(conf.get(), "s", "b", "3");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "#c\n[s]\na=2\nb=3\n");
  set(conf.get(), "s", "a", "4");
  g_conf_sync(conf.get());
  set(conf.get(), "s", "c", "5");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "[s]\na=4\nb=3\nc=5\n\n");
}

TEST(ConfSave, TheFileKeepsItsModeAndALinkStays) {
  const ConfFile file("[s]\na=1\n");
  ASSERT_EQ(chmod(file.path().c_str(), 0640), 0);
  const std::string link = file.directory() / "link.conf";
  ASSERT_EQ(symlink("test.conf", link.c_str()), 0);
  const Conf conf(g_conf_open(link.c_str()));
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  struct stat status;
  ASSERT_EQ(lstat(link.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(stat(file.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(file.text(), "[s]\na=2\n");
}

TEST(ConfSave, ALinkThatLeadsNowhereStaysSo) {
  const TemporaryDirectory directory;
  const std::string link = directory / "link.conf";
  ASSERT_EQ(symlink("none.conf", link.c_str()), 0);
  const Conf conf(g_conf_open(link.c_str()));
  set(conf.get(), "s", "a", "1");
  for (const int force : {0, 1}) {
    errno = 0;
    EXPECT_EQ(g_conf_save(conf.get(), force), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(conf->dirty, 1);
  }
  struct stat status;
  ASSERT_EQ(lstat(link.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  EXPECT_NE(access((directory / "none.conf").c_str(), F_OK), 0);
  conf->dirty = 0;
}

// A save must not leave half a file where no larger one may be written.
TEST(ConfSave, AResultLargerThanTheLimitOfFileSizesIsRefused) {
  const ConfFile file("# c\n[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "b", std::string(100, 'x').c_str());
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = signal(SIGXFSZ, SIG_IGN);
  for (const rlim_t limit : {0, 50, 114}) {
    const rlimit limits = {limit, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limits), 0);
    expect_refused(conf.get(), EFBIG);
    EXPECT_EQ(names_in(file.directory().path()), Lines{"test.conf"});
  }
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, handler);
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "# c\n[s]\na=1\nb=" + std::string(100, 'x') + "\n");
}

TEST(ConfSave, ExhaustedMemoryIsEnomemAndLeavesTheFile) {
  const std::string before = "[s]\na=1\n";
  const std::string value(1000, 'x');  // the buffer has to grow for it
  const ConfFile file(before);
  const Conf conf = file.open();
  set(conf.get(), "s", "b", value.c_str());
  set(conf.get(), "t", "c", value.c_str());
  for (int nth = 1;; ++nth) {
    AllocationFaults faults(nth, true);
    errno = 0;
    const int result = g_conf_save(conf.get(), 0);
    const int error = errno;
    faults.disarm();
    if (faults.failures() == 0) {
      EXPECT_EQ(result, 0);
      break;
    }
    EXPECT_EQ(result, -1) << nth;
    EXPECT_EQ(error, ENOMEM) << nth;
    EXPECT_EQ(file.text(), before);
    EXPECT_EQ(conf->dirty, 1);
  }
  EXPECT_EQ(file.text(), before + "b=" + value + "\n\n[t]\nc=" + value + "\n");
}

TEST(ConfSave, CallbacksDoNotRun) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  int calls = 0;
  const auto count = [](const GConfChange*, void* data) {
    return ++*static_cast<int*>(data);
  };
  ASSERT_EQ(g_conf_register_callback(conf.get(), "s", "a", count, &calls), 0);
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(calls, 0);
}

// Somebody else changed the file.

TEST(ConfSaveStale, AFileThatAnotherChangedIsLeftAlone) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  file.rewrite("[s]\na=3\n");  // of the same size
  expect_refused(conf.get(), ESTALE);
  // By content: written back by hand it is the file that was loaded.
  file.rewrite("[s]\na=1\n");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
}

TEST(ConfSaveStale, AFileThatIsGoneIsNotMadeAgain) {
  const ConfFile file("");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  file.remove();
  errno = 0;
  EXPECT_EQ(g_conf_save(conf.get(), 0), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_FALSE(file.exists());
  EXPECT_EQ(conf->dirty, 1);
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  EXPECT_EQ(file.text(), "[s]\na=2\n");
}

TEST(ConfSaveStale, AFileThatCameMeanwhileIsLeftAlone) {
  const ConfFile file;
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  file.rewrite("#\n");
  expect_refused(conf.get(), ESTALE);
}

TEST(ConfSaveStale, AFileThatAnotherChangedAfterASyncOrASaveIsLeftAlone) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  g_conf_sync(conf.get());
  set(conf.get(), "s", "a", "3");
  file.rewrite("[s]\na=1\n");  // what was loaded, but no longer what was written last
  expect_refused(conf.get(), ESTALE);
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  set(conf.get(), "s", "a", "4");
  file.rewrite("[s]\na=2\n");
  expect_refused(conf.get(), ESTALE);
}

TEST(ConfSaveStale, IsAskedOfTheFileThatWouldBeReplaced) {
  const TemporaryDirectory directory;
  ASSERT_EQ(mkdir((directory / "app").c_str(), 0755), 0);
  const Conf conf(g_conf_open(directory.write("app/f", "[s]\nk=1\n").c_str()));
  set(conf.get(), "s", "k", "2");
  directory.write("app/f", "[s]\nk=3\n");
  on_flock = [](int descriptor) {
    on_flock = nullptr;
    const auto in_parent = [descriptor](const char* name) {
      return "/proc/self/fd/" + std::to_string(descriptor) + "/../" + name;
    };
    const std::string app = in_parent("app");
    ASSERT_EQ(std::rename(app.c_str(), in_parent("old").c_str()), 0);
    ASSERT_EQ(mkdir(in_parent("app").c_str(), 0755), 0);
    std::ofstream(in_parent("app/f")) << "[s]\nk=1\n";
  };
  EXPECT_EQ(g_conf_save(conf.get(), 0), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(on_flock, nullptr);
  EXPECT_EQ(read_file(directory / "old/f"), "[s]\nk=3\n");
}

TEST(ConfSaveStale, IsAskedBeforeAnythingElse) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "two\nlines");
  file.rewrite(std::string_view("[s]\0", 4));
  expect_refused(conf.get(), ESTALE);
  // Even where no new file could be made.
  const TemporaryDirectory outer;
  const std::string directory = outer / "d";
  ASSERT_EQ(mkdir(directory.c_str(), 0755), 0);
  const std::string path = outer.write("d/f", "[s]\na=1\n");
  const Conf other(g_conf_open(path.c_str()));
  set(other.get(), "s", "a", "2");
  ASSERT_EQ(unlink(path.c_str()), 0);
  ASSERT_EQ(rmdir(directory.c_str()), 0);
  errno = 0;
  EXPECT_EQ(g_conf_save(other.get(), 0), -1);
  EXPECT_EQ(errno, ESTALE);
  other->dirty = 0;
}

TEST(ConfSaveStale, WithForceWhatIsThereIsEditedUntilItReadsAsTheModel) {
  const ConfFile file("[s]\na=1\nb=2\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "9");
  file.rewrite("# of another\n[s]\n a = 3 \nb=2\nc=4\n[t]\nx=1\n# end\n");
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  EXPECT_EQ(file.text(), "# of another\n[s]\n a = 9\nb=2\n# end\n");
  EXPECT_EQ(conf->dirty, 0);
  set(conf.get(), "s", "a", "8");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
}

TEST(ConfSaveStale, ADirectoryInPlaceOfTheFileIsNoFile) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  file.remove();
  ASSERT_EQ(mkdir(file.path().c_str(), 0755), 0);
  EXPECT_EQ(g_conf_save(conf.get(), 0), -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_EQ(g_conf_save(conf.get(), 1), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(conf->dirty, 1);
  conf->dirty = 0;
}

// Bytes that cannot be kept.

TEST(ConfSaveNul, AFileWithANulIsLeftAlone) {
  const ConfFile file(std::string_view("[s]\na=1\n\0[t]\n", 13));
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2");
  expect_refused(conf.get(), EBADMSG);
}

TEST(ConfSaveNul, WithForceTheModelIsWrittenFromNothing) {
  const ConfFile file(std::string_view("#c\n[s]\r\n a=1\n\0[t]\n", 19));
  const Conf conf = file.open();
  set(conf.get(), "s", "b", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 1), 0);
  EXPECT_EQ(file.text(), "[s]\na=1\nb=2\n");
}

// Models that no file can hold.

TEST(ConfSaveInexpressible, WhatWouldReadBackAsSomethingElseIsRefused) {
  struct Case {
    const char* section;
    const char* key;
    const char* value;
  };
  const Case cases[] = {
      {"s", "k", "a\nb"}, {"s", "k", "a\n[x]\nb=1"}, {"s", "a=b", "1"}, {"s", "#k", "1"},
      {"s", "[k", "1"},   {"s", "[k]", "1"},         {"s]", "k", "1"},  {"a\nb", "k", "1"},
      {"s", "a\nb", "1"}, {"s", "k", "1\n\n2"},
  };
  for (const Case& inexpressible : cases) {
    SCOPED_TRACE(std::string(inexpressible.section) + "." + inexpressible.key);
    for (const int force : {0, 1}) {
      const ConfFile file("[s]\na=1\n");
      const Conf conf = file.open();
      set(conf.get(), inexpressible.section, inexpressible.key, inexpressible.value);
      expect_refused(conf.get(), EINVAL, force);
      // Mended, it is saved.
      g_conf_remove_key(conf.get(), inexpressible.section, inexpressible.key);
      EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
      EXPECT_EQ(file.text(), "[s]\na=1\n");
    }
  }
}

TEST(ConfSaveInexpressible, AKeyOfTheFileWithAValueOfTwoLinesIsRefused) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  set(conf.get(), "s", "a", "2\n3");
  for (const int force : {0, 1}) expect_refused(conf.get(), EINVAL, force);
  set(conf.get(), "s", "a", "2");
  EXPECT_EQ(g_conf_save(conf.get(), 0), 0);
  EXPECT_EQ(file.text(), "[s]\na=2\n");
}

TEST(ConfSaveInexpressible, AnEmptySectionOfAnyNameIsNoObstacle) {
  EXPECT_EQ(saved("[s]\na=1\n",
                  [](GConf* conf) {
                    set(conf, "t]\n", "x", "1");
                    g_conf_remove_key(conf, "t]\n", "x");
                  }),
            "[s]\na=1\n");
}

TEST(ConfSaveInexpressible, AProgramsOwnRecordOfANameThatIsThereIsRefused) {
  const ConfFile file("[s]\na=1\n");
  const Conf conf = file.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  auto* const entry = static_cast<GConfEntry*>(malloc(sizeof(GConfEntry)));
  *entry = {strdup("A"), strdup("2")};
  section->entries = g_list_append(section->entries, entry);
  set(conf.get(), "s", "b", "3");
  expect_refused(conf.get(), EINVAL);
}

// What reading a list shows is what is saved, also where a program wrote into it.
TEST(ConfSaveInexpressible, ANameThatAProgramMadeShorterIsSavedSo) {
  EXPECT_EQ(saved("[s]\nk=1\n",
                  [](GConf* conf) {
                    set(conf, "s", "longer", "2");
                    g_find_line(g_find_section(conf, "s"), "longer")->key[4] = '\0';
                  }),
            "[s]\nk=1\nlong=2\n");
}

// A key or section of that name would be in the file twice, and loading takes one of them.
TEST(ConfSaveInexpressible, ANameThatAProgramMadeEqualToAnotherIsRefused) {
  struct Case {
    const char* text;
    const char* section;
    const char* key;
    bool is_key;  // else the section's name is cut
  };
  const Case cases[] = {
      {"[s]\na=1\n", "s", "ab", true},
      {"[s]\na=1\nab=5\n", "s", "ab", true},
      {"[s]\na=1\na=2\n", "s", "ab", true},  // no line is added here, and none removed
      {"[s]\na=1\n", "st", "b", false},
  };
  for (const Case& renamed : cases) {
    SCOPED_TRACE(std::string(renamed.text) + renamed.section + "." + renamed.key);
    const ConfFile file(renamed.text);
    const Conf conf = file.open();
    set(conf.get(), renamed.section, renamed.key, "6");
    GConfSection* const section = g_find_section(conf.get(), renamed.section);
    (renamed.is_key ? g_find_line(section, renamed.key)->key : section->name)[1] = '\0';
    for (const int force : {0, 1}) expect_refused(conf.get(), EINVAL, force);
    EXPECT_EQ(file.text(), renamed.text);
  }
}

TEST(ConfSaveInexpressible, AProgramsOwnRecordsAreSaved) {
  EXPECT_EQ(saved("[s]\na=1\n",
                  [](GConf* conf) {
                    GConfSection* const section = g_find_section(conf, "s");
                    auto* const entry =
                        static_cast<GConfEntry*>(malloc(sizeof(GConfEntry)));
                    *entry = {strdup("own"), strdup("2")};
                    section->entries = g_list_append(section->entries, entry);
                    set(conf, "s", "b", "3");
                  }),
            "[s]\na=1\nown=2\nb=3\n");
}

}  // namespace
