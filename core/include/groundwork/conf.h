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
 * A line whose first character is "[" names a section: everything up to the first "]". Without a
 * "]" the line is ignored. A line whose first character is "#" is a comment. Any other line with a
 * "=" sets the key before the first "=" to the value after it, both without leading and trailing
 * whitespace (blank, tab, newline, vertical tab, form feed, carriage return). All other lines are
 * ignored, and so is every line before the first section. There is no escape, no quoting and no
 * limit on the length of a line. A NUL byte ends the text.
 *
 * Look-ups of sections and keys ignore the case of the letters A to Z, whatever the locale. When a
 * section or key occurs more than once, the first occurrence decides its spelling and position and
 * the last one its value.
 *
 * The cost of reading or writing a key does not depend on how many keys there are.
 *
 * @warning The format cannot express everything that the functions accept, and nothing is escaped:
 * a value or key with a newline in it, a key that contains "=" or begins with "#" or "[", and a
 * section name with "]" or a newline are written as they are and read back as something else.
 * @warning g_conf_sync() and g_conf_close() empty the file before they lock and write it. A failed
 * write is logged and not retried. Comments and blank lines of the file are lost. Nothing is synced
 * to the disk: a power cut within seconds can leave the file empty. g_conf_save() of
 * <groundwork/safe.h> has none of these problems.
 *
 * Threads: each conf has a mutex. Reads, writes and removals may run on several threads at the same
 * time. g_conf_close(), g_conf_sync(), g_conf_register_callback(), g_find_section(), g_find_line()
 * and walks along the lists take no lock: no other thread may change the same conf during them.
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
 * if (conf == NULL) return 1;                   // the reason has been logged
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
 * The records are public so that programs can read them. Change them through the functions: the
 * library keeps private data after each public record, and a record and its strings may share one
 * block, so free nothing in them and no node of their lists. A program may reorder the lists, and
 * may append records of its own if the record and each of its strings are heap blocks; these then
 * belong to the conf. A program that replaces a string all the same, by another heap string, causes
 * no invalid free, but memory may leak and a renamed record may not be found.
 */

/** One key. */
typedef struct GConfEntry {
  char* key;   /**< as first spelled, trimmed; owned by the conf */
  char* value; /**< trimmed; owned by the conf */
} GConfEntry;

/** One section. */
typedef struct GConfSection {
  char* name;     /**< as first spelled, not trimmed; owned by the conf */
  GList* entries; /**< of GConfEntry, in the order in which the keys were first set */
} GConfSection;

/** One open configuration, from g_conf_open() to g_conf_close(). */
typedef struct GConf {
  char* filename;  /**< path of its file; owned by the conf */
  GList* sections; /**< of GConfSection, in the order first seen */
  int dirty;       /**< 1 after a change, 0 after loading and after each attempt to write */
  GMutex* mutex;   /**< guards sections and entries */
  GHash* callbacks; /**< maps "section.key" to the callbacks of that key */
} GConf;

/** What a callback receives; valid during the call only. */
typedef struct GConfChange {
  const char* section; /**< as passed to the write */
  const char* key;     /**< as passed to the write */
  const char* value;   /**< as passed to the write, before trimming */
} GConfChange;

/**
 * Called after the value of a key changed, on the thread that wrote it, without a lock: it may read
 * and write the conf, even the same key, and register callbacks. It must not close the conf.
 *
 * @param change  what was written.
 * @param data    as given to g_conf_register_callback().
 * @return 0 to let the next callback of this key run, anything else to stop there; the new value
 *         stays in either case.
 */
typedef int (*GConfCallback)(const GConfChange* change, void* data);

/**
 * Finds a section of a configuration. The name is compared ignoring the case of A to Z, whatever
 * the locale, and is not trimmed.
 *
 * @param conf  from g_conf_open(); not null, unchecked.
 * @param name  name of the section, NUL-terminated; not null, unchecked.
 * @return the section, owned by the conf and valid until it is removed or the conf is closed; null
 *         if there is none.
 *
 * Threads: takes no lock; no other thread may change the conf during the call or while the result
 * is in use.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "Pump", "name", "main");
 * const GConfSection *pump = g_find_section(conf, "pump");
 * if (pump != NULL) puts(pump->name); // prints: Pump
 * g_conf_close(conf);
 * @endcode
 */
G_API GConfSection* g_find_section(GConf* conf, const char* name);

/**
 * Finds a key in a section of a configuration. The key is compared ignoring the case of A to Z,
 * whatever the locale, and is not trimmed.
 *
 * @param section  from g_find_section() or the list of a conf, or a record of the program's own;
 *                 not null, unchecked.
 * @param key      name of the key, NUL-terminated; not null, unchecked.
 * @return the entry, owned by the conf and valid until it is removed or the conf is closed; null if
 *         there is none.
 *
 * Threads: takes no lock; no other thread may change the conf during the call or while the result
 * is in use.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "pump", "name", " main ");
 * GConfSection *pump = g_find_section(conf, "pump");
 * const GConfEntry *name = pump != NULL ? g_find_line(pump, "name") : NULL;
 * if (name != NULL) puts(name->value); // prints: main
 * g_conf_close(conf);
 * @endcode
 */
G_API GConfEntry* g_find_line(GConfSection* section, const char* key);

/**
 * Opens a configuration and loads its file.
 *
 * With a name, the file is loaded if it exists as a regular file. Otherwise the conf is new and
 * empty ("create new confing file - '%s'", logged at level 1), and the first g_conf_sync() or
 * g_conf_close() after a change creates the file.
 *
 * With null, "./<package>.conf" is loaded if it is a regular file. If it is not, or if loading it
 * fails, "/etc/<package>.conf" is loaded, which is never created. Each of the two paths is made
 * from the package name (see g_package_set_name()) when it is first needed and then stays the same
 * for the life of the process.
 *
 * The file is read under a shared lock on the whole file. If another process has it locked for
 * writing, the call fails immediately and does not wait. A file whose size changes during the
 * reading, or that is replaced by a file of another size, is not loaded.
 *
 * @param filename  path of the file, copied; null for the default file.
 * @return the conf, owned by the caller and released with g_conf_close(); null when the file cannot
 *         be opened, locked or read, or when memory is exhausted.
 *
 * @par Errors
 * Every failure ends with the warning "can't load config file '%s'.". One of these, with the file
 * name, comes before it:
 * - ``can't open file '%s'.``: warning; the file cannot be opened. The reason is in the line
 *   before.
 * - ``can't read lock for '%s.``: warning; another process has the file locked for writing. The
 *   line lacks its closing quote.
 * - ``can't read file '%s'.``: warning; a read error, a size that changed, a file of 2 GiB or more,
 *   or memory is exhausted.
 *
 * Threads: any thread.
 *
 * @par Notes
 * The lock belongs to the process: when this function returns, the process has lost every lock that
 * it had on the same file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf"); // need not exist
 * if (conf == NULL) return 1;             // the reason has been logged
 * printf("%d\n", g_conf_read_int(conf, "pump", "speed", 3)); // prints: 3
 * g_conf_close(conf);
 * @endcode
 */
G_API GConf* g_conf_open(const char* filename);

/**
 * Closes a configuration: writes its file if anything changed since it was last loaded or written,
 * then frees the conf with its sections, entries and callbacks.
 *
 * The file gets each section that has entries as "[name]", its "key=value" lines and an empty line.
 * It is created with permissions 0644 (less the umask), or emptied, then locked for writing, then
 * written. The calling thread is not cancelled while the file is being written.
 *
 * @param conf  from g_conf_open(); invalid afterwards, and so are all strings that were read from
 *              it.
 * @return 0, even if the file could not be written; -1 when `conf` is null.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``can't create config file '%s'.``: warning, with the file name; the file cannot be opened. The
 *   reason is in the line before.
 * - ``can't lock write for '%s'.``: warning, with the file name; another process has the file
 *   locked. The file is already empty then.
 * - ``%s - %d.``: warning, with the system's text and the error number; a write failed.
 *
 * Threads: takes no lock; no other thread may use the conf during the call or afterwards.
 *
 * @par Notes
 * - A failed write is logged and otherwise lost: nothing is tried again.
 * - The file is emptied before it is locked and written, and it is not synced to the disk: a power
 *   cut, a kill or a second writer at the wrong moment costs the file. g_conf_save() of
 *   <groundwork/safe.h> prevents that; after it returned 0 or 1 there is nothing left to write
 *   here.
 * - Changes that other programs made to the file are overwritten. Comments, blank lines and lines
 *   outside sections are lost, and sections without entries are not written.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "pump", "speed", 3);
 * g_conf_close(conf); // creates pump.conf
 * printf("%d\n", g_file_exist("pump.conf")); // prints: 1
 * @endcode
 */
G_API int g_conf_close(GConf* conf);

/**
 * Writes the file of a configuration if anything changed since it was last loaded or written.
 *
 * The file gets each section that has entries as "[name]", its "key=value" lines and an empty line.
 * It is created with permissions 0644 (less the umask), or emptied, then locked for writing, then
 * written. In every case the conf counts as written afterwards (`dirty` is 0). The calling thread
 * is not cancelled while the file is being written.
 *
 * @param conf  from g_conf_open(); null is logged.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``can't create config file '%s'.``: warning, with the file name; the file cannot be opened. The
 *   reason is in the line before.
 * - ``can't lock write for '%s'.``: warning, with the file name; another process has the file
 *   locked. The file is already empty then.
 * - ``%s - %d.``: warning, with the system's text and the error number; a write failed.
 *
 * Threads: takes no lock; no other thread may change the conf during the call.
 *
 * @par Notes
 * - A failed write is not tried again before the next change: after a full disk the settings are
 *   lost at the next start of the program. There is no result that says so.
 * - The file is emptied before it is locked and written, and it is not synced to the disk: a power
 *   cut, a kill or a second writer at the wrong moment costs the file. g_conf_save() of
 *   <groundwork/safe.h> prevents that.
 * - Changes that other programs made to the file are overwritten. Comments, blank lines and lines
 *   outside sections are lost, and sections without entries are not written.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "pump", "speed", 3);
 * g_conf_sync(conf);
 * printf("%d\n", conf->dirty); // prints: 0
 * g_conf_close(conf);          // has nothing to write
 * @endcode
 */
G_API void g_conf_sync(GConf* conf);

/**
 * Reads a value of a configuration as text. A missing section or key is not logged.
 *
 * @param conf     from g_conf_open(); null gives `def`, without a log line.
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param def      returned when there is no value; may be null.
 * @return the value, NUL-terminated, owned by the conf. It is valid until the entry is changed or
 *         removed, or the conf closed, by any thread. `def` when the section or key does not exist,
 *         when the value is empty, or when `conf`, `section` or `key` is null.
 *
 * @par Errors
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close().
 *
 * @par Notes
 * The text is freed when the key is written, also by another thread. Copy what must last longer.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "pump", "name", "main");
 * puts(g_conf_read_string(conf, "PUMP", "Name", "unnamed"));  // prints: main
 * puts(g_conf_read_string(conf, "pump", "place", "unknown")); // prints: unknown
 * g_conf_close(conf);
 * @endcode
 */
G_API const char* g_conf_read_string(GConf* conf, const char* section, const char* key,
                                     const char* def);

/**
 * Reads a value of a configuration as a decimal integer, converted by strtol() in base 10: leading
 * whitespace and a sign are accepted, and the first other character ends the number.
 *
 * @param conf     from g_conf_open(); null gives `def`, without a log line.
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param def      returned when there is no value.
 * @return the number, clamped to the range of 32 bits; 0 for a text without digits. `def` when the
 *         section or key does not exist, when the value is empty, or when `conf`, `section` or
 *         `key` is null.
 *
 * @par Errors
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close().
 *
 * @par Notes
 * A text that is not a number gives 0, not `def`: a typing error in the file looks like a zero.
 * Read the string where that matters.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "pump", "speed", "40 rpm");
 * printf("%d\n", g_conf_read_int(conf, "pump", "speed", 10)); // prints: 40
 * printf("%d\n", g_conf_read_int(conf, "pump", "limit", 90)); // prints: 90
 * g_conf_close(conf);
 * @endcode
 */
G_API int g_conf_read_int(GConf* conf, const char* section, const char* key, int def);

/**
 * Reads a value of a configuration as a truth value: only the text "TRUE", in any case, is true.
 *
 * @param conf     from g_conf_open(); null gives `def`, without a log line.
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param def      returned unchanged when there is no value.
 * @return 1 for "TRUE", 0 for every other text. `def` when the section or key does not exist, when
 *         the value is empty, or when `conf`, `section` or `key` is null.
 *
 * @par Errors
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close().
 *
 * @par Notes
 * "yes", "1" and "on" are false. Write truth values with g_conf_write_boolean().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_boolean(conf, "pump", "on", 1);
 * g_conf_write_string(conf, "pump", "loud", "yes");
 * printf("%d\n", g_conf_read_boolean(conf, "pump", "on", 0));   // prints: 1
 * printf("%d\n", g_conf_read_boolean(conf, "pump", "loud", 0)); // prints: 0
 * g_conf_close(conf);
 * @endcode
 */
G_API int g_conf_read_boolean(GConf* conf, const char* section, const char* key, int def);

/**
 * Reads a value of a configuration as a float, converted by strtod(), which uses the decimal point
 * of the locale.
 *
 * @param conf     from g_conf_open(); null gives `def`, without a log line.
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param def      returned when there is no value.
 * @return the number, narrowed to a float; 0 for a text that is not a number. `def` when the
 *         section or key does not exist, when the value is empty, or when `conf`, `section` or
 *         `key` is null.
 *
 * @par Errors
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_float(conf, "pump", "pressure", 2.5f);
 * printf("%.1f\n", g_conf_read_float(conf, "pump", "pressure", 1.0f)); // prints: 2.5
 * g_conf_close(conf);
 * @endcode
 */
G_API float g_conf_read_float(GConf* conf, const char* section, const char* key, float def);

/**
 * Reads a value of a configuration as a double, converted by strtod(), which uses the decimal point
 * of the locale.
 *
 * @param conf     from g_conf_open(); null gives `def`, without a log line.
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param def      returned when there is no value.
 * @return the number; 0 for a text that is not a number. `def` when the section or key does not
 *         exist, when the value is empty, or when `conf`, `section` or `key` is null.
 *
 * @par Errors
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "pump", "scale", "3.14159265");
 * printf("%.8f\n", g_conf_read_double(conf, "pump", "scale", 1.0)); // prints: 3.14159265
 * g_conf_close(conf);
 * @endcode
 */
G_API double g_conf_read_double(GConf* conf, const char* section, const char* key,
                                double def);

/**
 * Writes a value of a configuration, in memory.
 *
 * Nothing happens if the stored text equals `value` exactly; a missing key counts as "". Otherwise
 * the value, without leading and trailing whitespace, replaces the stored one. A missing section is
 * appended under exactly the name given, and a missing key is appended to its section, trimmed.
 * Then the conf is dirty, and the callbacks of the key run on the calling thread. The text reaches
 * the file with g_conf_sync(), g_conf_close() or g_conf_save().
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param value    the text, NUL-terminated, copied. It may be a string read from the conf, even
 *                 from this key.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``'value != NULL' FAILED.``: critical; `value` is null.
 * - ``can't store '%s'->'%s'.``: warning, with section and key; memory is exhausted. Nothing has
 *   changed and no callback runs.
 * - ``can't run callbacks for '%s'->'%s'.``: warning, with section and key; memory is exhausted.
 *   The value is stored.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync(). The callbacks
 * run without a lock.
 *
 * @par Notes
 * - The previous text is freed, and pointers to it from g_conf_read_string() dangle, also on other
 *   threads.
 * - There is no escape in the file: a line end in the value, "=" in the key or "]" in the section
 *   is read back as something else. g_conf_save() refuses such a conf.
 * - Writing an empty value to a missing key stores nothing.
 * - Callbacks compare the names with case: a write to "Net" changes the entry of "net" without
 *   running the callbacks of "net".
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_string(conf, "pump", "name", "main");
 * puts(g_conf_read_string(conf, "pump", "name", "unnamed")); // prints: main
 * g_conf_close(conf); // writes "[pump]" and "name=main"
 * @endcode
 */
G_API void g_conf_write_string(GConf* conf, const char* section, const char* key,
                               const char* value);

/**
 * Writes an integer to a configuration, in memory, as "%d" formats it.
 *
 * If the stored text differs, the new one replaces it, or the missing section or key is appended;
 * the conf is then dirty, and the callbacks of the key run on the calling thread.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param value    the number.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``can't store '%s'->'%s'.``: warning, with section and key; memory is exhausted. Nothing has
 *   changed and no callback runs.
 * - ``can't run callbacks for '%s'->'%s'.``: warning, with section and key; memory is exhausted.
 *   The value is stored.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync(). The callbacks
 * run without a lock.
 *
 * @par Notes
 * Pointers to the previous text from g_conf_read_string() dangle, also on other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "pump", "speed", -40);
 * puts(g_conf_read_string(conf, "pump", "speed", "")); // prints: -40
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_write_int(GConf* conf, const char* section, const char* key, int value);

/**
 * Writes a truth value to a configuration, in memory: "TRUE" or "FALSE".
 *
 * If the stored text differs, the new one replaces it, or the missing section or key is appended;
 * the conf is then dirty, and the callbacks of the key run on the calling thread.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param value    0 for "FALSE", anything else for "TRUE".
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``can't store '%s'->'%s'.``: warning, with section and key; memory is exhausted. Nothing has
 *   changed and no callback runs.
 * - ``can't run callbacks for '%s'->'%s'.``: warning, with section and key; memory is exhausted.
 *   The value is stored.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync(). The callbacks
 * run without a lock.
 *
 * @par Notes
 * Pointers to the previous text from g_conf_read_string() dangle, also on other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_boolean(conf, "pump", "on", 1);
 * puts(g_conf_read_string(conf, "pump", "on", "")); // prints: TRUE
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_write_boolean(GConf* conf, const char* section, const char* key,
                                int value);

/**
 * Writes a float to a configuration, in memory, as "%g" formats it.
 *
 * If the stored text differs, the new one replaces it, or the missing section or key is appended;
 * the conf is then dirty, and the callbacks of the key run on the calling thread.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param value    the number; written with the decimal point of the locale.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``can't store '%s'->'%s'.``: warning, with section and key; memory is exhausted. Nothing has
 *   changed and no callback runs.
 * - ``can't run callbacks for '%s'->'%s'.``: warning, with section and key; memory is exhausted.
 *   The value is stored.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync(). The callbacks
 * run without a lock.
 *
 * @par Notes
 * - "%g" keeps six significant digits: 1234567 is stored as "1.23457e+06".
 * - Pointers to the previous text from g_conf_read_string() dangle, also on other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_float(conf, "pump", "total", 1234567.0f);
 * puts(g_conf_read_string(conf, "pump", "total", "")); // prints: 1.23457e+06
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_write_float(GConf* conf, const char* section, const char* key,
                              float value);

/**
 * Writes a double to a configuration, in memory, as "%g" formats it.
 *
 * If the stored text differs, the new one replaces it, or the missing section or key is appended;
 * the conf is then dirty, and the callbacks of the key run on the calling thread.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 * @param value    the number; written with the decimal point of the locale.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``can't store '%s'->'%s'.``: warning, with section and key; memory is exhausted. Nothing has
 *   changed and no callback runs.
 * - ``can't run callbacks for '%s'->'%s'.``: warning, with section and key; memory is exhausted.
 *   The value is stored.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync(). The callbacks
 * run without a lock.
 *
 * @par Notes
 * - "%g" keeps six significant digits: 3.14159265 is stored as "3.14159". Write a string where all
 *   digits matter.
 * - Pointers to the previous text from g_conf_read_string() dangle, also on other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_double(conf, "pump", "scale", 3.14159265);
 * puts(g_conf_read_string(conf, "pump", "scale", "")); // prints: 3.14159
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_write_double(GConf* conf, const char* section, const char* key,
                               double value);

/**
 * Removes a key from a configuration, in memory, and frees its entry. No callback runs. A missing
 * section or key changes nothing and is not an error; otherwise the conf is dirty afterwards.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 * @param key      name of the key, NUL-terminated; compared ignoring the case of A to Z.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync().
 *
 * @par Notes
 * - Strings that were read from the entry dangle, also on other threads.
 * - A section that loses its last key stays in memory but is not written to the file.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "pump", "speed", 40);
 * g_conf_remove_key(conf, "pump", "speed");
 * printf("%d\n", g_conf_read_int(conf, "pump", "speed", 10)); // prints: 10
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_remove_key(GConf* conf, const char* section, const char* key);

/**
 * Removes a section from a configuration, in memory, with all its entries. No callback runs. A
 * missing section changes nothing and is not an error; otherwise the conf is dirty afterwards.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated; compared ignoring the case of A to Z.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 *
 * Threads: any thread at any time, except during g_conf_close() and g_conf_sync().
 *
 * @par Notes
 * Strings that were read from the section dangle, also on other threads.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_write_int(conf, "pump", "speed", 40);
 * g_conf_remove_section(conf, "pump");
 * puts(g_find_section(conf, "pump") == NULL ? "gone" : "still there"); // prints: gone
 * g_conf_close(conf);
 * @endcode
 */
G_API void g_conf_remove_section(GConf* conf, const char* section);

/**
 * Registers a callback for changes of one key of a configuration. It stays registered until
 * g_conf_close(). The callbacks of a key run in the order of registration; one that was registered
 * twice runs twice.
 *
 * @param conf     from g_conf_open().
 * @param section  name of the section, NUL-terminated, copied; compared exactly.
 * @param key      name of the key, NUL-terminated, copied; compared exactly.
 * @param func     called after each write that changed the key.
 * @param data     passed to `func`; stays the caller's; may be null.
 * @return 0; -1 when `conf`, `section`, `key` or `func` is null, or when memory is exhausted.
 *
 * @par Errors
 * - ``'conf != NULL' FAILED.``: critical; `conf` is null.
 * - ``'section != NULL' FAILED.``: critical; `section` is null.
 * - ``'key != NULL' FAILED.``: critical; `key` is null.
 * - ``'func != NULL' FAILED.``: critical; `func` is null.
 * - ``can't register callback for '%s'->'%s'.``: warning, with section and key; memory is
 *   exhausted.
 *
 * Threads: takes no lock. Register before other threads write to the conf.
 *
 * @par Notes
 * - Here the names are compared with case: a callback for "net" and "ip" does not run for a write
 *   to "Net" and "ip", although that changes the same entry. Use one spelling.
 * - The names are joined by a dot, so "a.b" with "c" and "a" with "b.c" are the same key here.
 * - Removals and loading run no callbacks; g_conf_reload() of <groundwork/safe.h> does.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static int on_speed(const GConfChange *change, void *data) {
 *   printf("%s: %s\n", (const char *)data, change->value);
 *   return 0; // let further callbacks of the key run
 * }
 *
 * GConf *conf = g_conf_open("pump.conf");
 * if (conf == NULL) return 1;
 * g_conf_register_callback(conf, "pump", "speed", on_speed, "new speed");
 * g_conf_write_int(conf, "pump", "speed", 40); // prints: new speed: 40
 * g_conf_close(conf);
 * @endcode
 */
G_API int g_conf_register_callback(GConf* conf, const char* section, const char* key,
                                   GConfCallback func, void* data);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
