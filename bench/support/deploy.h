/// Deployments of numbered text resources of 1 KiB.
#pragma once

#include <cstddef>
#include <string>

#include "gateway.h"

namespace bench {

inline constexpr std::size_t kResourceBytes = 1024;

/// The job list that carries a request with `count` resources of the web server at `root`;
/// `operate` is 0 to deploy, 1 to delete.
std::string jobsOf(const std::string& root, std::size_t count, int operate);

/// A job list of `count` orders to delete a job.
std::string deleteOrders(std::size_t count);

/// Seconds from the heartbeat's reply with `jobs` to the last report, which must be a good one.
double deploy(Gateway& gateway, const Service& service, const std::string& jobs);

}  // namespace bench
