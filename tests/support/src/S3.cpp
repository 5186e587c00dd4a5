#include "zkfs/test/S3.hpp"

#include "foundation/storage/provider/S3Provider.hpp"

#include <cctype>
#include <cstdlib>
#include <curl/curl.h>
#include <fstream>
#include <map>
#include <stdexcept>

namespace zkfs::test {

namespace {

std::map<std::string, std::string> state() {
    std::map<std::string, std::string> out;
    std::ifstream in(ZKFS_S3_STATE);
    for (std::string line; std::getline(in, line);) {
        const auto eq = line.find('=');
        if (eq != std::string::npos) out[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return out;
}

std::string path(const std::string& bucket, const std::string& key) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "/" + bucket + "/";
    for (const char ch : key) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) != 0 || std::string_view("-._~/").find(ch) != std::string_view::npos) {
            out += ch;
        } else {
            out += {'%', digits[c >> 4], digits[c & 15]};
        }
    }
    return out;
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

struct Answer {
    long status = 0;
    std::string body;
    long long time = -1;  // Last-Modified, seconds
};

// One unsigned request: s3rver serves anonymous ones.
Answer request(const char* method, const std::string& target, const std::string& body = {}) {
    CURL* h = curl_easy_init();
    if (h == nullptr || localS3Endpoint().empty()) throw std::runtime_error("no local S3 server");
    Answer a;
    curl_easy_setopt(h, CURLOPT_URL, (localS3Endpoint() + target).c_str());
    curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method);
    curl_easy_setopt(h, CURLOPT_NOBODY, std::string_view(method) == "HEAD" ? 1L : 0L);
    curl_easy_setopt(h, CURLOPT_FILETIME, 1L);
    if (std::string_view(method) == "PUT") {
        curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    }
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, &a.body);
    const CURLcode code = curl_easy_perform(h);
    curl_off_t time = -1;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &a.status);
    curl_easy_getinfo(h, CURLINFO_FILETIME_T, &time);
    a.time = static_cast<long long>(time);
    curl_easy_cleanup(h);
    if (code != CURLE_OK || a.status != 200) {
        throw std::runtime_error(std::string(method) + " " + target + ": " +
                                 (code != CURLE_OK ? curl_easy_strerror(code) : a.body));
    }
    return a;
}

}  // namespace

std::string localS3Endpoint() {
    const auto s = state();
    const auto it = s.find("AWS_ENDPOINT_URL");
    return it == s.end() ? std::string() : it->second;
}

bool useLocalS3() {
    const auto s = state();
    if (s.count("AWS_ENDPOINT_URL") == 0) return false;
    for (const char* name :
         {"AWS_ENDPOINT_URL", "AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY", "AWS_REGION"}) {
        ::setenv(name, s.at(name).c_str(), 1);
    }
    ::unsetenv("AWS_ENDPOINT_URL_S3");
    ::unsetenv("AWS_SESSION_TOKEN");
    foundation::storage::provider::reloadS3Configuration();
    return true;
}

void makeBucket(const std::string& bucket) { request("PUT", "/" + bucket); }

void putObject(const std::string& bucket, const std::string& key, const std::string& body) {
    request("PUT", path(bucket, key), body);
}

std::vector<std::string> listKeys(const std::string& bucket) {
    const std::string body = request("GET", "/" + bucket + "?list-type=2").body;
    std::vector<std::string> keys;
    // The test buckets hold plain keys, never more than one page, no XML escapes.
    for (auto at = body.find("<Key>"); at != std::string::npos; at = body.find("<Key>", at)) {
        const auto end = body.find("</Key>", at);
        keys.push_back(body.substr(at + 5, end - at - 5));
        at = end;
    }
    return keys;
}

long long objectTime(const std::string& bucket, const std::string& key) {
    return request("HEAD", path(bucket, key)).time * 1000;
}

}  // namespace zkfs::test
