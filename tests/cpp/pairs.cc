// SPDX-License-Identifier: MIT
// Pairs of functions that do the same through the C interface and through the wrapper. At
// -O2 both of a pair compile to the same instructions.

#include <groundwork/groundwork.hpp>

#define PAIR(name, result, parameters, c, cpp) \
  extern "C" result c_##name parameters {      \
    c;                                         \
  }                                            \
  extern "C" result cpp_##name parameters {    \
    cpp;                                       \
  }

PAIR(read_int, int, (gw::Conf & conf, const char* key),
     return g_conf_read_int(conf.get(), "net", key, 3), return conf.read_int("net", key, 3))
PAIR(write_string, void, (gw::Conf & conf, const std::string& value),
     g_conf_write_string(conf.get(), "net", "name", value.c_str()),
     conf.write_string("net", "name", value))
PAIR(dequeue, void*, (gw::PointerQueue<int> & queue),
     return g_queue_dequeue(queue.get(), nullptr), return queue.dequeue())
PAIR(enqueue, void, (gw::PointerQueue<int> & queue, int* element),
     g_queue_enqueue(queue.get(), element), queue.enqueue(element))
PAIR(put, bool, (gw::Fifo<int> & fifo, int* element),
     return g_fifo_put(fifo.get(), element) == 0, return fifo.put(element))
PAIR(find, void*, (gw::Hash<const char, int> & hash, const char* key),
     return g_hash_find(hash.get(), key), return hash.find(key))
PAIR(
    lock, void, (gw::Mutex & mutex, int& count),
    {
      GMutex* const handle = mutex.get();
      g_thread_mutex_lock(handle);
      ++count;
      g_thread_mutex_unlock(mutex.get());
    },
    {
      const gw::Lock lock(mutex);
      ++count;
    })
PAIR(sum, int, (gw::List<int> & list), int sum = 0;
     for (GList* node = list.get(); node != nullptr; node = node->next) sum +=
     *static_cast<int*>(node->data);
     return sum, int sum = 0; for (int* number
                                   : list) sum += *number;
     return sum)
PAIR(fgetc, int, (gw::Url & url), return url_fgetc(url.get()), return url.byte())
PAIR(read, int64_t, (gw::File & file, void* buffer),
     return g_file_read(file.get(), buffer, 100), return file.read(buffer, 100))
PAIR(exists, bool, (const char* path), return g_file_exist(path) != 0,
     return gw::file_exists(path))
