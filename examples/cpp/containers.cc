// SPDX-License-Identifier: MIT
// A queue that owns its objects, a hash table, a ring buffer and a list.
#include <groundwork/groundwork.hpp>

#include <cstdio>
#include <memory>
#include <string>

int main() {
  // Objects move in and out; the queue destroys those that are left.
  gw::Queue<std::unique_ptr<std::string>> jobs;
  jobs.push(std::make_unique<std::string>("print"));
  jobs.push(std::make_unique<std::string>("scan"));
  if (const auto job = jobs.pop()) std::printf("first job: %s\n", (*job)->c_str());
  std::printf("%zu left\n", jobs.size());

  // Pointers to objects that the program owns.
  struct Service {
    const char* name;
    int port;
  };
  Service services[] = {{"http", 80}, {"ssh", 22}, {"ntp", 123}};
  gw::Hash<const char, Service> by_name;
  for (Service& service : services) by_name.insert(service.name, &service);
  if (const Service* ssh = by_name.find("ssh")) std::printf("ssh: %d\n", ssh->port);
  int low_ports = 0;
  for (const auto [name, service] : by_name) {
    if (service->port < 100) ++low_ports;
    if (service->port > 100) by_name.remove(name);  // safe inside the loop
  }
  std::printf("%d below 100, %u left\n", low_ports, by_name.size());

  gw::Fifo<Service> ring(2);
  if (!ring.put(&services[0]) || !ring.put(&services[1])) return 1;
  std::printf("full: %s\n", ring.full() ? "yes" : "no");
  if (const Service* oldest = ring.take()) std::printf("oldest: %s\n", oldest->name);

  gw::List<Service> order;
  for (Service& service : services) order.prepend(&service);
  for (const Service* service : order) std::printf("%s\n", service->name);
}
// prints: first job: print
// prints: 1 left
// prints: ssh: 22
// prints: 2 below 100, 2 left
// prints: full: yes
// prints: oldest: http
// prints: ntp
// prints: ssh
// prints: http
