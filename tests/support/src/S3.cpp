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

std::string encoded(const std::string& key) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    for (const char ch : key) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) != 0 || std::string_view("-._~/").find(ch) != std::string_view::npos) {
            out += ch;
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 15];
        }
    }
    return out;
}

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

long request(const char* method, const std::string& path, const std::string& body,
             std::string* answer, long long* time = nullptr) {
    const std::string endpoint = localS3Endpoint();
    if (endpoint.empty()) throw std::runtime_error("no local S3 server");
    CURL* h = curl_easy_init();
    if (h == nullptr) throw std::runtime_error("curl_easy_init");
    std::string sink;
    curl_easy_setopt(h, CURLOPT_URL, (endpoint + path).c_str());
    curl_easy_setopt(h, CURLOPT_CUSTOMREQUEST, method);
    if (std::string_view(method) == "HEAD") curl_easy_setopt(h, CURLOPT_NOBODY, 1L);
    if (time != nullptr) curl_easy_setopt(h, CURLOPT_FILETIME, 1L);
    if (std::string_view(method) == "PUT") {
        curl_easy_setopt(h, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(h, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    }
    curl_easy_setopt(h, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(h, CURLOPT_WRITEDATA, answer != nullptr ? answer : &sink);
    const CURLcode code = curl_easy_perform(h);
    long status = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
    curl_off_t seconds = -1;
    if (time != nullptr && curl_easy_getinfo(h, CURLINFO_FILETIME_T, &seconds) == CURLE_OK) {
        *time = static_cast<long long>(seconds) * 1000;
    }
    curl_easy_cleanup(h);
    if (code != CURLE_OK) throw std::runtime_error(curl_easy_strerror(code));
    return status;
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

void makeBucket(const std::string& bucket) {
    if (request("PUT", "/" + bucket, {}, nullptr) != 200) {
        throw std::runtime_error("cannot make bucket " + bucket);
    }
}

void putObject(const std::string& bucket, const std::string& key, const std::string& body) {
    if (request("PUT", "/" + bucket + "/" + encoded(key), body, nullptr) != 200) {
        throw std::runtime_error("cannot put " + key);
    }
}

std::optional<std::string> getObject(const std::string& bucket, const std::string& key) {
    std::string body;
    const long status = request("GET", "/" + bucket + "/" + encoded(key), {}, &body);
    if (status == 404) return std::nullopt;
    if (status != 200) throw std::runtime_error("cannot get " + key);
    return body;
}

std::vector<std::string> listKeys(const std::string& bucket) {
    std::vector<std::string> keys;
    std::string body;
    if (request("GET", "/" + bucket + "?list-type=2", {}, &body) != 200) {
        throw std::runtime_error("cannot list " + bucket);
    }
    // The test buckets hold plain keys, never more than one page, no XML escapes.
    for (auto at = body.find("<Key>"); at != std::string::npos; at = body.find("<Key>", at)) {
        const auto end = body.find("</Key>", at);
        keys.push_back(body.substr(at + 5, end - at - 5));
        at = end;
    }
    return keys;
}

long long objectTime(const std::string& bucket, const std::string& key) {
    long long time = -1;
    if (request("HEAD", "/" + bucket + "/" + encoded(key), {}, nullptr, &time) != 200 || time < 0) {
        throw std::runtime_error("no time for " + key);
    }
    return time;
}

}  // namespace zkfs::test
