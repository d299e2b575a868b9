// A configuration whose program is killed while it is saved.
//
// SPDX-License-Identifier: MIT

#include <groundwork/conf.h>
#include <groundwork/safe.h>
#include <gtest/gtest.h>

#include <string>

#include "crash/killed.h"

TEST(Kill, SavedConfigurationIsOldOrNewAtEachCall) {
  const std::string old_text = "# a comment\n[net]\nport=80\nhost=here\n";
  const std::string new_text = "# a comment\n[net]\nport=8080\nhost=here\n";
  crash::expect_survives_kills("g_conf_save", old_text, new_text,
                               [](const std::string& path) {
                                 GConf* const conf = g_conf_open(path.c_str());
                                 if (conf == nullptr) return -2;
                                 g_conf_write_int(conf, "net", "port", 8080);
                                 const int result = g_conf_save(conf, 0);
                                 g_conf_close(conf);
                                 return result;
                               });
}
