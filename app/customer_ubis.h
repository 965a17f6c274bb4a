#pragma once

#include <string>

// The names of the customer's UBI volumes (those named "cust_..."), joined by
// ":", from the sysfs directory of a UBI device; empty when there are none.
// Volumes that cannot be read are reported on standard error and left out.
std::string CustomerUbiVolumes(const std::string& ubi_device);
