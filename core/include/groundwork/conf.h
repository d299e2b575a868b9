/* SPDX-License-Identifier: MIT */
/**
 * @defgroup conf Configuration
 *
 * Configuration store: INI-style text files, read whole, changed in memory, written whole.
 *
 * The text:
 *
 *     # a comment
 *     [net]
 *     address = 10.0.0.1
 *     port=80
 *
 * A line whose first character is "[" names a section, exactly the text up to the first "]";
 * without a "]" it is ignored. A line whose first character is "#" is a comment. Any other
 * line with a "=" sets the key before the first "=" to the value after it, both without
 * leading and trailing whitespace (blank, tab, newline, vertical tab, form feed, carriage
 * return). All else is ignored: lines without "=", and every line before the first section.
 * There is no escape, no quoting and no limit on a line. A NUL byte ends the text.
 *
 * Sections and keys are found ignoring the case of the letters A to Z, whatever the locale.
 * A section or key that comes again continues the first of its name: the first spelling and
 * place stay, the last value holds.
 *
 * Reading and writing cost the same however many keys there are.
 *
 * @warning The format cannot express everything that can be written through the functions
 * below, and nothing is escaped: a value or key with a newline in it, a key that contains
 * "=" or begins with "#" or "[", and a section name with "]" or a newline are written as they
 * are and read back as something else.
 * @warning g_conf_sync() and g_conf_close() empty the file before they lock and write it; a
 * failed write is logged, not retried. Comments and blank lines of the file are not kept. Nothing
 * is synced to the disk: a power cut within seconds can leave the file empty. g_conf_save() of
 * <groundwork/safe.h> does none of this.
 *
 * Threads: each conf has a mutex. Reads, writes and removals may run on several threads at
 * once. g_conf_close(), g_conf_sync(), g_conf_register_callback(), g_find_section(),
 * g_find_line() and walks along the lists take no lock: no other thread may change the same
 * conf meanwhile.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int on_port(const GConfChange *change, void *data) {
 *   (void)data;
 *   printf("%s.%s is now %s\n", change->section, change->key, change->value);
 *   return 0;
 * }
 *
 * GConf *conf = g_conf_open("waterworks.conf"); // a missing file is an empty configuration
 * if (conf == NULL) return 1;                   // it has been logged why
 * g_conf_register_callback(conf, "net", "port", on_port, NULL);
 * g_conf_write_int(conf, "net", "port", 8080);                // prints: net.port is now 8080
 * printf("%d\n", g_conf_read_int(conf, "net", "backlog", 5)); // prints: 5
 * g_conf_close(conf); // writes the file
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_CONF_H
#define GROUNDWORK_CONF_H

#include <groundwork/export.h>
#include <groundwork/hash.h>
#include <groundwork/list.h>
#include <groundwork/thread.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The records are public to be read. Change them through the functions below: the library
 * keeps more behind each record than is shown, records and their strings may share one
 * block, and so nothing in them may be freed, and no node of their lists. A program may
 * reorder the lists, and may add records of its own at their ends, with every string and the
 * record itself from the heap: they then belong to the conf. Where a program replaces a string
 * all the same, by one from the heap, nothing is freed that must not be, but memory may leak and
 * a renamed record may not be found.
 */

/** One key. */
typedef struct GConfEntry {
  char* key;   /**< as first spelled, trimmed; owned by the conf */
  char* value; /**< trimmed; owned by the conf */
} GConfEntry;

/** One section. */
typedef struct GConfSection {
  char* name;     /**< as first spelled, not trimmed; owned by the conf */
  GList* entries; /**< of GConfEntry, in the order of their first setting */
} GConfSection;

/** One open configuration, from g_conf_open() to g_conf_close(). */
typedef struct GConf {
  char* filename;  /**< of the file behind it; owned by the conf */
  GList* sections; /**< of GConfSection, in the order first seen */
  int dirty;       /**< 1 after a change, 0 after loading and after each attempt to write */
  GMutex* mutex;   /**< guards sections and entries */
  GHash* callbacks; /**< "section.key" to the callbacks of that key */
} GConf;

/** What a callback is told; valid during the call only. */
typedef struct GConfChange {
  const char* section; /**< as passed to the write */
  const char* key;     /**< as passed to the write */
  const char* value;   /**< as passed to the write, before trimming */
} GConfChange;

/**
 * Called after a key got a new value, on the thread that wrote it, with no lock held: it may
 * read and write the conf, the same key included, and register callbacks. It must not close
 * the conf.
 *
 * @param change  what was written.
 * @param data    as given to g_conf_register_callback().
 * @return 0 to let the next callback of this key run, anything else to stop here; the write
 *         counts either way.
 */
typedef int (*GConfCallback)(const GConfChange* change, void* data);

/**
 * Finds a section of a configuration.
 *
 * @param conf  not null; unchecked.
 * @param name  not null; unchecked. Compared ignoring case, not trimmed.
 * @return the section, valid until it is removed or the conf closed; null when there is none.
 *
 * Threads: takes no lock.
 */
G_API GConfSection* g_find_section(GConf* conf, const char* name);

/**
 * Finds a key in a section of a configuration.
 *
 * @param section  not null; unchecked. May be a record of the program's own.
 * @param key      not null; unchecked. Compared ignoring case, not trimmed.
 * @return the entry, valid until it is removed or the conf closed; null when there is none.
 *
 * Threads: takes no lock.
 */
G_API GConfEntry* g_find_line(GConfSection* section, const char* key);

/**
 * Opens a configuration.
 *
 * With a name: the file is loaded when it exists as a regular file; otherwise the conf is
 * new and empty ("create new confing file - '%s'", level 1), and the file is created by the
 * first sync or close after a change.
 *
 * With null: loads "./<package>.conf" when that is a regular file, otherwise, or when that
 * fails, "/etc/<package>.conf", which is never created. Each of the two paths is made with
 * the package name (see g_package_set_name()) when it is first needed and stays the same for
 * the life of the process.
 *
 * The file is read under a shared lock on the whole file; a file that another process has
 * locked for writing is not waited for. One that changes its size meanwhile, or that is replaced
 * by a file of another size, is not loaded.
 *
 * @param filename  copied; or null for the default file.
 * @return the conf, for g_conf_close(). Null when the file cannot be opened ("can't open file
 *         '%s'."), locked ("can't read lock for '%s.") or read ("can't read file '%s'."), or
 *         memory is exhausted; each is a warning, followed by "can't load config file '%s'.".
 */
G_API GConf* g_conf_open(const char* filename);

/**
 * Closes a configuration: writes the file if anything changed, as g_conf_sync(), then frees the
 * conf with its sections, entries and callbacks. Strings that were read from it die with it.
 *
 * @param conf  from g_conf_open(); not to be used afterwards.
 * @return 0, also when the file could not be written; -1 when `conf` is null (logged as
 *         critical).
 */
G_API int g_conf_close(GConf* conf);

/**
 * Writes the configuration file if anything changed since the last load or sync: each section
 * that has entries as "[name]", its "key=value" lines and an empty line. The file is created with
 * permissions 0644 or emptied, then locked for writing, then written.
 *
 * Warnings: "can't create config file '%s'.", "can't lock write for '%s'.". Whether the
 * writing itself worked is not checked. The conf counts as written in every case: a failed
 * write is not tried again before the next change.
 *
 * The calling thread is not cancelled while the file is being written.
 *
 * @param conf  from g_conf_open(); null is reported as critical.
 *
 * Threads: takes no lock; no other thread may change the conf meanwhile.
 */
G_API void g_conf_sync(GConf* conf);

/**
 * Reads a value of a configuration as text. A missing section or key is not logged.
 *
 * @param conf     from g_conf_open(); null answers `def` without a report.
 * @param section  name, compared ignoring case; null is reported as critical.
 * @param key      name, compared ignoring case; null is reported as critical.
 * @param def      the answer when there is no value; may be null.
 * @return the value, owned by the conf, valid until this entry is changed or removed or the
 *         conf closed: also by another thread. `def` when the section or key does not exist,
 *         the value is empty, or an argument is null.
 */
G_API const char* g_conf_read_string(GConf* conf, const char* section, const char* key,
                                     const char* def);

/**
 * Reads a value as a decimal integer, as strtol() in base 10: leading whitespace and a sign are
 * accepted, the first other character ends the number, and a text without digits gives 0,
 * not `def`.
 *
 * @param conf     as g_conf_read_string().
 * @param section  as g_conf_read_string().
 * @param key      as g_conf_read_string().
 * @param def      the answer when there is no value.
 * @return the number, clamped to 32 bits; `def` as g_conf_read_string().
 */
G_API int g_conf_read_int(GConf* conf, const char* section, const char* key, int def);

/**
 * Reads a value as truth or not: only the text "TRUE", in any case, is true.
 *
 * @param conf     as g_conf_read_string().
 * @param section  as g_conf_read_string().
 * @param key      as g_conf_read_string().
 * @param def      the answer when there is no value; passed on unchanged.
 * @return 1 for "TRUE", 0 for every other text: "yes", "1" and "on" too. `def` as
 *         g_conf_read_string().
 */
G_API int g_conf_read_boolean(GConf* conf, const char* section, const char* key, int def);

/**
 * Reads a value as a float: as strtod(), which follows the locale's decimal point, narrowed.
 *
 * @param conf     as g_conf_read_string().
 * @param section  as g_conf_read_string().
 * @param key      as g_conf_read_string().
 * @param def      the answer when there is no value.
 * @return the number; 0 for a text that is none. `def` as g_conf_read_string().
 */
G_API float g_conf_read_float(GConf* conf, const char* section, const char* key, float def);

/** Reads a value as a double, as g_conf_read_float() without the narrowing.
 *  @param conf    as g_conf_read_string(). @param section as g_conf_read_string().
 *  @param key     as g_conf_read_string(). @param def the answer when there is no value.
 *  @return the number, 0 or `def`, as g_conf_read_float(). */
G_API double g_conf_read_double(GConf* conf, const char* section, const char* key,
                                double def);

/**
 * Writes a value of a configuration, in memory. Nothing happens when the stored text equals `value`
 * to the letter; an absent key counts as "". Otherwise the value, without leading and trailing
 * whitespace, replaces the stored one; a missing section is appended, named exactly as given, and a
 * missing key is appended to it, trimmed. Then the conf is dirty, and the callbacks of the key run.
 *
 * When memory is exhausted nothing changes and no callback runs ("can't store '%s'->'%s'.",
 * logged as a warning with section and key).
 *
 * @param conf     from g_conf_open(). A null argument is logged as critical; nothing else
 *                 happens then.
 * @param section  name, compared ignoring case.
 * @param key      name, compared ignoring case.
 * @param value    copied. It may be a string read from the conf, of this key too.
 */
G_API void g_conf_write_string(GConf* conf, const char* section, const char* key,
                               const char* value);

/** Writes an integer, as "%d", as g_conf_write_string() does.
 *  @param conf  as g_conf_write_string(). @param section as g_conf_write_string().
 *  @param key   as g_conf_write_string(). @param value the number. */
G_API void g_conf_write_int(GConf* conf, const char* section, const char* key, int value);

/** Writes a truth value: "TRUE" for any but 0, "FALSE" for 0, as g_conf_write_string() does.
 *  @param conf  as g_conf_write_string(). @param section as g_conf_write_string().
 *  @param key   as g_conf_write_string(). @param value the truth value. */
G_API void g_conf_write_boolean(GConf* conf, const char* section, const char* key,
                                int value);

/** Writes a number as "%g", as g_conf_write_string() does.
 *  @warning "%g" keeps six significant digits: 1234567 is stored as "1.23457e+06".
 *  @param conf  as g_conf_write_string(). @param section as g_conf_write_string().
 *  @param key   as g_conf_write_string(). @param value the number. */
G_API void g_conf_write_float(GConf* conf, const char* section, const char* key,
                              float value);

/** Writes a number as "%g", as g_conf_write_string() does.
 *  @warning "%g" keeps six significant digits: 3.14159265 is stored as "3.14159".
 *  @param conf  as g_conf_write_string(). @param section as g_conf_write_string().
 *  @param key   as g_conf_write_string(). @param value the number. */
G_API void g_conf_write_double(GConf* conf, const char* section, const char* key,
                               double value);

/**
 * Removes a key from a configuration and frees its entry; runs no callback. A missing section or
 * key changes nothing and is no error.
 *
 * @param conf     from g_conf_open(). A null argument is logged as critical.
 * @param section  name, compared ignoring case.
 * @param key      name, compared ignoring case.
 */
G_API void g_conf_remove_key(GConf* conf, const char* section, const char* key);

/**
 * Removes a section from a configuration with all its entries; runs no callback. A missing section
 * changes nothing and is no error.
 *
 * @param conf     from g_conf_open(). A null argument is logged as critical.
 * @param section  name, compared ignoring case.
 */
G_API void g_conf_remove_section(GConf* conf, const char* section);

/**
 * Registers a callback for changes of one key; there is no way back but g_conf_close(). Callbacks
 * of a key run in the order of registration; one that was registered twice runs twice.
 *
 * The names are compared exactly, unlike everywhere else here: a callback for "net" and "ip"
 * does not run for a write to "Net" and "ip", although it changes the same entry. They are
 * joined by a dot, so "a.b" with "c" and "a" with "b.c" are the same key here.
 *
 * @param conf     from g_conf_open().
 * @param section  name, copied.
 * @param key      name, copied.
 * @param func     called after each write that changed the key.
 * @param data     passed on; not owned.
 * @return 0; -1 when an argument but `data` is null (logged as critical) or memory is
 *         exhausted ("can't register callback for '%s'->'%s'.", a warning).
 *
 * Threads: takes no lock. Register before other threads write to the conf.
 */
G_API int g_conf_register_callback(GConf* conf, const char* section, const char* key,
                                   GConfCallback func, void* data);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
