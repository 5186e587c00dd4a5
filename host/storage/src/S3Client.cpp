#include "S3Client.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <curl/curl.h>
#include <memory>
#include <mutex>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>
#include <optional>
#include <random>
#include <thread>

#include <fcntl.h>

namespace foundation::storage::s3 {

namespace {

std::string env(const char* name) {
    const char* v = std::getenv(name);
    return v == nullptr ? std::string() : std::string(v);
}

std::string trimmed(std::string_view s) {
    const auto b = s.find_first_not_of(" \t\r");
    if (b == std::string_view::npos) return {};
    return std::string(s.substr(b, s.find_last_not_of(" \t\r") - b + 1));
}

std::string readSmallFile(const std::string& path) {
    std::string out;
    const fl::sys::UniqueFd fd = fl::sys::openat(AT_FDCWD, path.c_str(), O_RDONLY);
    if (!fd.valid()) return out;
    std::array<char, 4096> buffer{};
    for (long n; (n = fl::sys::read(fd.get(), buffer.data(), buffer.size())) > 0;) {
        out.append(buffer.data(), static_cast<std::size_t>(n));
        if (out.size() > (1U << 20)) break;  // no shared file is that large
    }
    return out;
}

// The keys of one section of an INI file as the AWS tools write it.
std::map<std::string, std::string> iniSection(const std::string& path, const std::string& section) {
    std::map<std::string, std::string> out;
    const std::string text = readSmallFile(path);
    bool inside = false;
    std::size_t pos = 0;
    while (pos < text.size()) {
        const std::size_t end = std::min(text.find('\n', pos), text.size());
        const std::string line = trimmed(std::string_view(text).substr(pos, end - pos));
        pos = end + 1;
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        if (line.front() == '[') {
            inside = line.back() == ']' && trimmed(line.substr(1, line.size() - 2)) == section;
            continue;
        }
        const auto eq = line.find('=');
        if (inside && eq != std::string::npos) {
            out[trimmed(line.substr(0, eq))] = trimmed(line.substr(eq + 1));
        }
    }
    return out;
}

std::string firstOf(std::initializer_list<std::string> values) {
    for (const auto& v : values) {
        if (!v.empty()) return v;
    }
    return {};
}

std::string hex(const unsigned char* data, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        out += digits[data[i] >> 4];
        out += digits[data[i] & 15];
    }
    return out;
}

std::string sha256Hex(std::string_view data) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(data.data()), data.size(), digest.data());
    return hex(digest.data(), digest.size());
}

std::string hmac(std::string_view key, std::string_view data) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> out{};
    unsigned int size = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(data.data()), data.size(), out.data(), &size);
    return {reinterpret_cast<const char*>(out.data()), size};
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// "scheme://host[:port]" of a URL, and the rest (a base path, may be empty).
std::pair<std::string, std::string> splitEndpoint(const std::string& url) {
    const auto scheme = url.find("://");
    const auto slash = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
    if (slash == std::string::npos) return {url, {}};
    std::string base = url.substr(slash);
    while (!base.empty() && base.back() == '/') base.pop_back();
    return {url.substr(0, slash), base};
}

// The Host header a client sends: the port only when it is not the scheme's own.
std::string hostOf(const std::string& origin) {
    const auto scheme = origin.find("://");
    std::string host = origin.substr(scheme == std::string::npos ? 0 : scheme + 3);
    if (const auto at = host.rfind('@'); at != std::string::npos) host.erase(0, at + 1);
    const bool https = lower(origin.substr(0, 6)) == "https:";
    const std::string defaultPort = https ? ":443" : ":80";
    if (host.size() > defaultPort.size() &&
        host.compare(host.size() - defaultPort.size(), defaultPort.size(), defaultPort) == 0) {
        host.erase(host.size() - defaultPort.size());
    }
    return lower(host);
}

bool virtualHostable(const std::string& bucket) { return bucket.find('.') == std::string::npos; }

std::string amzNow() {
    const std::time_t t = std::time(nullptr);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    std::array<char, 20> text{};
    std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &tm);
    return text.data();
}

bool retryableTransport(CURLcode code) {
    switch (code) {
        case CURLE_COULDNT_CONNECT:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE:
        case CURLE_OPERATION_TIMEDOUT:
            return true;
        default:
            return false;
    }
}

bool retryableStatus(const Response& r) {
    if (r.status >= 500 || r.status == 429) return true;
    return r.body.find("<Code>SlowDown</Code>") != std::string::npos;
}

std::size_t collectBody(char* data, std::size_t size, std::size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

std::size_t collectHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto& headers = *static_cast<std::map<std::string, std::string>*>(user);
    const std::string_view line(data, size * count);
    const auto colon = line.find(':');
    if (line.rfind("HTTP/", 0) == 0) {
        headers.clear();  // a new response (after a 100 Continue or a redirect)
        // The reason phrase: all a HEAD answer says about an error.
        const auto space = line.find(' ', line.find(' ') + 1);
        if (space != std::string_view::npos) headers[":reason"] = trimmed(line.substr(space + 1));
    } else if (colon != std::string_view::npos) {
        headers[lower(std::string(line.substr(0, colon)))] = trimmed(line.substr(colon + 1));
    }
    return size * count;
}

}  // namespace

std::string uriEncode(std::string_view raw, bool keepSlash) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(raw.size());
    for (const char ch : raw) {
        const auto c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_' || c == '~' ||
            (keepSlash && c == '/')) {
            out += ch;
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 15];
        }
    }
    return out;
}

Config loadConfig() {
    Config c;
    const std::string home = env("HOME");
    const std::string profile = firstOf({env("AWS_PROFILE"), "default"});
    const std::string credentialsFile = firstOf(
        {env("AWS_SHARED_CREDENTIALS_FILE"), home.empty() ? "" : home + "/.aws/credentials"});
    const std::string configFile =
        firstOf({env("AWS_CONFIG_FILE"), home.empty() ? "" : home + "/.aws/config"});
    const auto credentials = credentialsFile.empty() ? std::map<std::string, std::string>{}
                                                     : iniSection(credentialsFile, profile);
    const auto settings =
        configFile.empty()
            ? std::map<std::string, std::string>{}
            : iniSection(configFile, profile == "default" ? profile : "profile " + profile);
    const auto from = [](const std::map<std::string, std::string>& m, const char* key) {
        const auto it = m.find(key);
        return it == m.end() ? std::string() : it->second;
    };
    if (!env("AWS_ACCESS_KEY_ID").empty() && !env("AWS_SECRET_ACCESS_KEY").empty()) {
        c.accessKey = env("AWS_ACCESS_KEY_ID");
        c.secretKey = env("AWS_SECRET_ACCESS_KEY");
        c.sessionToken = env("AWS_SESSION_TOKEN");
    } else {
        for (const auto* m : {&credentials, &settings}) {
            if (!from(*m, "aws_access_key_id").empty()) {
                c.accessKey = from(*m, "aws_access_key_id");
                c.secretKey = from(*m, "aws_secret_access_key");
                c.sessionToken = from(*m, "aws_session_token");
                break;
            }
        }
    }
    c.region = firstOf(
        {env("AWS_REGION"), env("AWS_DEFAULT_REGION"), from(settings, "region"), "us-east-1"});
    c.endpoint = firstOf(
        {env("AWS_ENDPOINT_URL_S3"), env("AWS_ENDPOINT_URL"), from(settings, "endpoint_url")});
    while (!c.endpoint.empty() && c.endpoint.back() == '/') c.endpoint.pop_back();
    return c;
}

Signed sign(const Config& config, const Request& request, const std::string& amzDate) {
    // A custom endpoint gets path-style requests (ENDPOINT/BUCKET/KEY), as the S3
    // work-alikes expect; AWS itself gets virtual-hosted ones where the name allows.
    std::string origin;
    std::string path;
    if (!config.endpoint.empty()) {
        auto [o, base] = splitEndpoint(config.endpoint);
        origin = o;
        path = base + "/" + uriEncode(request.bucket, false);
        if (!request.key.empty()) path += "/" + uriEncode(request.key, true);
    } else if (virtualHostable(request.bucket)) {
        origin = "https://" + request.bucket + ".s3." + config.region + ".amazonaws.com";
        path = "/" + uriEncode(request.key, true);
    } else {
        origin = "https://s3." + config.region + ".amazonaws.com";
        path = "/" + uriEncode(request.bucket, false);
        if (!request.key.empty()) path += "/" + uriEncode(request.key, true);
    }
    std::vector<std::pair<std::string, std::string>> query;
    for (const auto& [k, v] : request.query)
        query.emplace_back(uriEncode(k, false), uriEncode(v, false));
    std::sort(query.begin(), query.end());
    std::string canonicalQuery;
    for (const auto& [k, v] : query) {
        if (!canonicalQuery.empty()) canonicalQuery += '&';
        canonicalQuery += k + "=" + v;
    }
    Signed out;
    out.url = origin + path + (canonicalQuery.empty() ? "" : "?" + canonicalQuery);
    const std::string host = hostOf(origin);
    out.headers.push_back("Host: " + host);
    if (config.anonymous()) return out;

    const std::string payload = sha256Hex(request.body);
    std::vector<std::pair<std::string, std::string>> signedHeaders{
        {"host", host}, {"x-amz-content-sha256", payload}, {"x-amz-date", amzDate}};
    if (!config.sessionToken.empty()) {
        signedHeaders.emplace_back("x-amz-security-token", config.sessionToken);
    }
    std::string canonicalHeaders;
    std::string names;
    for (const auto& [k, v] : signedHeaders) {
        canonicalHeaders += k + ":" + v + "\n";
        names += (names.empty() ? "" : ";") + k;
    }
    const std::string canonicalRequest = request.method + "\n" + path + "\n" + canonicalQuery +
                                         "\n" + canonicalHeaders + "\n" + names + "\n" + payload;
    const std::string day = amzDate.substr(0, 8);
    const std::string scope = day + "/" + config.region + "/s3/aws4_request";
    const std::string toSign =
        "AWS4-HMAC-SHA256\n" + amzDate + "\n" + scope + "\n" + sha256Hex(canonicalRequest);
    const std::string key =
        hmac(hmac(hmac(hmac("AWS4" + config.secretKey, day), config.region), "s3"), "aws4_request");
    const std::string signature = hmac(key, toSign);
    for (std::size_t i = 1; i < signedHeaders.size(); ++i) {
        out.headers.push_back(signedHeaders[i].first + ": " + signedHeaders[i].second);
    }
    out.headers.push_back(
        "Authorization: AWS4-HMAC-SHA256 Credential=" + config.accessKey + "/" + scope +
        ", SignedHeaders=" + names + ", Signature=" +
        hex(reinterpret_cast<const unsigned char*>(signature.data()), signature.size()));
    return out;
}

struct Client::Pool {
    std::mutex mutex;
    std::optional<Config> config;
    std::vector<CURL*> idle;

    void dropIdle() {
        for (CURL* h : idle) curl_easy_cleanup(h);
        idle.clear();
    }
};

Client::Client() : pool_(new Pool) { curl_global_init(CURL_GLOBAL_DEFAULT); }

Client::~Client() {
    pool_->dropIdle();
    delete pool_;
}

Client& Client::instance() {
    static Client client;
    return client;
}

Config Client::config() {
    std::lock_guard lock(pool_->mutex);
    if (!pool_->config) pool_->config = loadConfig();
    return *pool_->config;
}

void Client::reload() {
    std::lock_guard lock(pool_->mutex);
    pool_->config = loadConfig();
    pool_->dropIdle();
}

Response Client::send(const Request& request) {
    const Config cfg = config();
    static thread_local std::minstd_rand jitter(std::random_device{}());
    Response r;
    for (int attempt = 0;; ++attempt) {
        r = sendOnce(cfg, request);
        const bool again = r.status == 0
                               ? !r.transportError.empty() && r.headers.count(":retry") > 0
                               : retryableStatus(r);
        if (!again || attempt == 3) break;
        const auto pause =
            std::chrono::milliseconds(50 << attempt) + std::chrono::milliseconds(jitter() % 25);
        std::this_thread::sleep_for(pause);
    }
    r.headers.erase(":retry");
    return r;
}

Response Client::sendOnce(const Config& config, const Request& request) {
    CURL* handle = nullptr;
    {
        std::lock_guard lock(pool_->mutex);
        if (!pool_->idle.empty()) {
            handle = pool_->idle.back();
            pool_->idle.pop_back();
        }
    }
    if (handle == nullptr) handle = curl_easy_init();
    Response r;
    if (handle == nullptr) {
        r.transportError = "libcurl could not make a handle";
        return r;
    }
    // Reset keeps the handle's live connections; only the options go.
    curl_easy_reset(handle);
    const Signed s = sign(config, request, amzNow());
    curl_slist* headers = nullptr;
    for (const auto& h : s.headers) headers = curl_slist_append(headers, h.c_str());
    for (const auto& [k, v] : request.headers) {
        headers = curl_slist_append(headers, (k + ": " + v).c_str());
    }
    // libcurl's own defaults would reach the server unsigned and change what is stored.
    headers = curl_slist_append(headers, "Expect:");
    if (request.method == "PUT") {
        headers = curl_slist_append(headers, "Content-Type: application/octet-stream");
    }
    std::array<char, CURL_ERROR_SIZE> error{};
    curl_easy_setopt(handle, CURLOPT_URL, s.url.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error.data());
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, 5000L);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, 30L);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, collectBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &r.body);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, collectHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, &r.headers);
    if (request.method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
    } else if (request.method == "PUT") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, "PUT");
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request.body.data());
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    } else if (request.method != "GET") {
        curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    const CURLcode code = curl_easy_perform(handle);
    curl_slist_free_all(headers);
    if (code == CURLE_OK) {
        curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &r.status);
    } else {
        r.status = 0;
        r.body.clear();
        r.headers.clear();
        r.transportError = error[0] != '\0' ? error.data() : curl_easy_strerror(code);
        if (retryableTransport(code)) r.headers[":retry"] = "1";
    }
    std::lock_guard lock(pool_->mutex);
    if (code == CURLE_OK) {
        pool_->idle.push_back(handle);
    } else {
        curl_easy_cleanup(handle);  // its connection may be half-used
    }
    return r;
}

}  // namespace foundation::storage::s3
