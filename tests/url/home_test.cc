// SPDX-License-Identifier: MIT

#include <groundwork/url.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include <pwd.h>

namespace {

// Sets HOME and home for a test; null unsets.
class Home : public testing::Test {
 protected:
  Home() {
    set("HOME", nullptr);
    set("home", nullptr);
  }
  static void set(const char* name, const char* value) {
    if (value != nullptr) {
      setenv(name, value, 1);
    } else {
      unsetenv(name);
    }
  }
  static void set(const char* name, const std::string& value) { set(name, value.c_str()); }
};

using ExpandHome = Home;
using UnexpandHome = Home;

TEST_F(ExpandHome, ReturnsOtherPathsThemselves) {
  set("HOME", "/home/u");
  for (const char* const path : {"docs/a", "/x", "", "a~/b", " ~"}) {
    EXPECT_EQ(url_expand_home_dir(path), path);
  }
}

TEST_F(ExpandHome, PutsHomeInFront) {
  set("HOME", "/home/u");
  set("home", "/other");
  EXPECT_STREQ(url_expand_home_dir("~/a"), "/home/u/a");
  EXPECT_STREQ(url_expand_home_dir("~/"), "/home/u/");
  EXPECT_STREQ(url_expand_home_dir("~//~/b"), "/home/u//~/b");
}

TEST_F(ExpandHome, TakesTheLowerCaseNameSecond) {
  set("home", "/home/v");
  EXPECT_STREQ(url_expand_home_dir("~/a"), "/home/v/a");
}

TEST_F(ExpandHome, TakesAnEmptyHomeAsSet) {
  set("HOME", "");
  set("home", "/home/v");
  const char* const path = "~/a";
  EXPECT_STREQ(url_expand_home_dir(path), "/a");
  EXPECT_NE(url_expand_home_dir(path), path + 1);
}

TEST_F(ExpandHome, WithoutAnyHomeDropsTheTilde) {
  const char* const path = "~/a";
  EXPECT_EQ(url_expand_home_dir(path), path + 1);
}

TEST_F(ExpandHome, LooksUsersUp) {
  const passwd* const root = getpwnam("root");
  if (root == nullptr) GTEST_SKIP() << "no user database";
  const std::string home = root->pw_dir;
  EXPECT_EQ(url_expand_home_dir("~root"), home);
  EXPECT_EQ(url_expand_home_dir("~root/a/b"), home + "/a/b");
}

TEST_F(ExpandHome, ReturnsThePathOfAnUnknownUserUnchanged) {
  set("HOME", "/home/u");
  for (const char* const path : {"~nosuchuser/a", "~nosuchuser", "~"}) {
    EXPECT_EQ(url_expand_home_dir(path), path);
  }
}

TEST_F(ExpandHome, SurvivesAUserNameLongerThanItsBuffer) {
  const std::string path = "~" + std::string(20000, 'u') + "/a";
  EXPECT_EQ(url_expand_home_dir(path.c_str()), path.c_str());
}

TEST_F(ExpandHome, CutsTheResultAt8191Characters) {
  set("HOME", "/home/u");
  const std::string fits = "/" + std::string(8183, 'x');
  EXPECT_EQ(url_expand_home_dir(("~" + fits).c_str()), "/home/u" + fits);
  EXPECT_EQ(url_expand_home_dir(("~" + fits + "y").c_str()), "/home/u" + fits);
}

TEST_F(ExpandHome, CutsALongHomeAt8191Characters) {
  for (const size_t length : {8190u, 8191u, 8192u, 20000u}) {
    const std::string home = "/" + std::string(length - 1, 'h');
    set("HOME", home);
    EXPECT_EQ(url_expand_home_dir("~/a"), (home + "/a").substr(0, 8191)) << length;
  }
}

TEST_F(ExpandHome, ReusesItsBuffer) {
  set("HOME", "/home/u");
  const char* const first = url_expand_home_dir("~/a");
  EXPECT_EQ(url_expand_home_dir("~/b"), first);
  EXPECT_STREQ(first, "/home/u/b");
}

TEST_F(UnexpandHome, ReturnsRelativePathsThemselves) {
  set("HOME", "/home/u");
  for (const char* const path : {"docs/a", "", "~/a", "home/u/a"}) {
    EXPECT_EQ(url_unexpand_home_dir(path), path);
  }
}

TEST_F(UnexpandHome, ReturnsRelativePathsThemselvesBelowARelativeHomeToo) {
  set("HOME", "home/u");
  const char* const path = "home/u/a";
  EXPECT_EQ(url_unexpand_home_dir(path), path);
}

TEST_F(UnexpandHome, ContractsPathsBelowHome) {
  set("HOME", "/home/u");
  set("home", "/other");
  EXPECT_STREQ(url_unexpand_home_dir("/home/u/a"), "~/a");
  EXPECT_STREQ(url_unexpand_home_dir("/home/u/"), "~/");
  EXPECT_STREQ(url_unexpand_home_dir("/home/u//b"), "~//b");
}

TEST_F(UnexpandHome, LeavesTheDirectoryItselfAndLongerNamesAlone) {
  set("HOME", "/home/u");
  for (const char* const path : {"/home/u", "/home/uv/a", "/home", "/", "/home/v/a"}) {
    EXPECT_EQ(url_unexpand_home_dir(path), path);
  }
}

TEST_F(UnexpandHome, AcceptsAHomeThatEndsWithASlash) {
  set("HOME", "/home/u/");
  EXPECT_STREQ(url_unexpand_home_dir("/home/u/a"), "~/a");
  set("HOME", "/");
  EXPECT_STREQ(url_unexpand_home_dir("/a"), "~/a");
  EXPECT_STREQ(url_unexpand_home_dir("/"), "~/");
}

TEST_F(UnexpandHome, TakesTheLowerCaseNameSecond) {
  set("home", "/home/v");
  EXPECT_STREQ(url_unexpand_home_dir("/home/v/a"), "~/a");
}

TEST_F(UnexpandHome, WithoutAHomeOrWithAnEmptyOneReturnsThePathItself) {
  const char* const path = "/home/u/a";
  EXPECT_EQ(url_unexpand_home_dir(path), path);
  set("HOME", "");
  set("home", "/home/u");
  EXPECT_EQ(url_unexpand_home_dir(path), path);
}

TEST_F(UnexpandHome, TakesHomesOfUpTo8189Characters) {
  const std::string longest = "/" + std::string(8188, 'h');
  set("HOME", longest);
  EXPECT_STREQ(url_unexpand_home_dir((longest + "/a").c_str()), "~/a");
  const std::string with_slash = "/" + std::string(8187, 'h') + "/";
  set("HOME", with_slash);
  EXPECT_STREQ(url_unexpand_home_dir((with_slash + "a").c_str()), "~/a");
  for (const std::string& home : {longest + "h", longest + "hh", std::string(20000, '/')}) {
    set("HOME", home);
    const std::string path = home + "/a";
    EXPECT_EQ(url_unexpand_home_dir(path.c_str()), path.c_str());
  }
}

TEST_F(UnexpandHome, TakesRestsOfUpTo8188Characters) {
  set("HOME", "/home/u");
  const std::string rest(8188, 'x');
  EXPECT_EQ(url_unexpand_home_dir(("/home/u/" + rest).c_str()), "~/" + rest);
  const std::string path = "/home/u/" + rest + "y";
  EXPECT_EQ(url_unexpand_home_dir(path.c_str()), path.c_str());
}

TEST_F(UnexpandHome, HasABufferOfItsOwn) {
  set("HOME", "/home/u");
  const char* const expansion = url_expand_home_dir("~/a");
  const char* const contraction = url_unexpand_home_dir("/home/u/b");
  EXPECT_STREQ(expansion, "/home/u/a");
  EXPECT_STREQ(contraction, "~/b");
}

TEST_F(UnexpandHome, TakesAnExpansionBack) {
  set("HOME", "/home/u");
  EXPECT_STREQ(url_unexpand_home_dir(url_expand_home_dir("~/a")), "~/a");
}

}  // namespace
