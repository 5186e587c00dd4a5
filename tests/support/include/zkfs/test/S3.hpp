#pragma once
// The local S3 server of a test run (scripts/s3rver, started by the ctest fixture
// "s3rver", its variables in the state file the build names), reached with plain
// unsigned libcurl requests, so that what a test sets up or checks does not go through
// the provider under test.
//
// useLocalS3() exports the server's endpoint and credentials to the environment and makes
// the provider read them again; false when no server runs (a test binary started by
// hand, outside ctest). The others throw std::runtime_error when the server refuses.
#include <string>
#include <vector>

namespace zkfs::test {

bool useLocalS3();
// The endpoint ("http://127.0.0.1:PORT"), empty when no server runs.
std::string localS3Endpoint();
void makeBucket(const std::string& bucket);
void putObject(const std::string& bucket, const std::string& key, const std::string& body = {});
// Every key of the bucket, in the store's order.
std::vector<std::string> listKeys(const std::string& bucket);
// The object's Last-Modified, milliseconds since 1970 as LastModified answers.
long long objectTime(const std::string& bucket, const std::string& key);

}  // namespace zkfs::test
