/*
 * Configuration: settings in a text file that people can edit, and callbacks for every
 * change.
 *
 *   configuration FILE
 *
 * Run it twice: the second run finds what the first one stored. Then change a line of FILE
 * and run it again.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>

/* The settings that the program works with; the callbacks keep them up to date. */
struct heating {
  GConf* conf;
  int degrees;
  int on;
};

/* Runs on the thread that wrote a new value, before the write returns. `change->value` is
 * the text that was written; typed reads convert it. */
static int on_change(const GConfChange* change, void* data) {
  struct heating* heating = data;

  heating->degrees = g_conf_read_int(heating->conf, "heating", "degrees", 20);
  heating->on = g_conf_read_boolean(heating->conf, "heating", "on", 0);
  printf("%s.%s is now \"%s\": %d degrees, %s\n", change->section, change->key,
         change->value, heating->degrees, heating->on ? "on" : "off");
  return 0; /* anything else would keep further callbacks of this key from running */
}

/* A callback may write: this one moves the setting back into bounds, which runs the
 * callbacks of the key once more. */
static int keep_bounds(const GConfChange* change, void* data) {
  struct heating* heating = data;

  if (heating->degrees > 30) g_conf_write_int(heating->conf, "heating", change->key, 30);
  return 0;
}

/* The records are public, for reading. */
static void print_all(const GConf* conf) {
  for (const GList* node = conf->sections; node != NULL; node = node->next) {
    const GConfSection* section = node->data;

    for (const GList* line = section->entries; line != NULL; line = line->next) {
      const GConfEntry* entry = line->data;

      printf("  %s.%s = %s\n", section->name, entry->key, entry->value);
    }
  }
}

int main(int argc, char** argv) {
  struct heating heating = {NULL, 0, 0};
  GConf* conf;

  if (argc != 2) {
    fprintf(stderr, "usage: configuration FILE\n");
    return 2;
  }

  /* A missing file is an empty configuration: each read names its default. With a null name
   * this would open ./<package>.conf or /etc/<package>.conf. */
  conf = g_conf_open(argv[1]);
  if (conf == NULL) return 1; /* the reason has been logged */
  heating.conf = conf;

  printf("found:\n");
  print_all(conf);

  /* Section and key names are case-insensitive, but not in registrations. */
  g_conf_register_callback(conf, "heating", "degrees", on_change, &heating);
  g_conf_register_callback(conf, "heating", "degrees", keep_bounds, &heating);
  g_conf_register_callback(conf, "heating", "on", on_change, &heating);

  g_conf_write_int(conf, "heating", "degrees", 22);
  g_conf_write_int(conf, "heating", "degrees", 22); /* no change, no callback */
  g_conf_write_int(conf, "heating", "degrees", 45);
  g_conf_write_boolean(conf, "heating", "on", 1);    /* stored as "TRUE" */
  g_conf_write_string(conf, "heating", "on", "yes"); /* only "TRUE" is true */

  /* Strings belong to the configuration and stay valid until their key changes. */
  printf("room: %s\n", g_conf_read_string(conf, "place", "room", "(not given)"));
  g_conf_write_int(conf, "count", "runs", g_conf_read_int(conf, "count", "runs", 0) + 1);
  g_conf_write_string(conf, "count", "scratch", "gone before anybody sees it");
  g_conf_remove_key(conf, "count", "scratch");

  /* So far everything has happened in memory. The file is rewritten as a whole, and only if
   * something has changed. Its comments are lost; g_conf_save() would keep them. */
  g_conf_sync(conf);
  printf("stored:\n");
  print_all(conf);
  return g_conf_close(conf) == 0 ? 0 : 1;
}
