#pragma once
// The S3 wire protocol under the "s3" provider: configuration read as the AWS tools read
// it, Signature Version 4, and libcurl handles kept in a pool so that connections stay
// alive across calls. Safe to use from several threads.
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::s3 {

struct Config {
    std::string accessKey;
    std::string secretKey;
    std::string sessionToken;
    std::string region = "us-east-1";
    // "http(s)://host[:port][/base]" without a trailing "/"; empty for AWS itself.
    std::string endpoint;
    [[nodiscard]] bool anonymous() const { return accessKey.empty() || secretKey.empty(); }
};

// The environment first (AWS_ACCESS_KEY_ID, AWS_SECRET_ACCESS_KEY, AWS_SESSION_TOKEN,
// AWS_REGION, AWS_DEFAULT_REGION, AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL), then the
// profile AWS_PROFILE (else "default") of the shared credentials and config files.
Config loadConfig();

struct Request {
    std::string method = "GET";
    std::string bucket;
    std::string key;  // UTF-8, not encoded; empty for the bucket itself
    std::vector<std::pair<std::string, std::string>> query;    // not encoded
    std::vector<std::pair<std::string, std::string>> headers;  // sent, not signed
    std::string body;
};

struct Response {
    long status = 0;  // 0 when no answer came (transportError says why)
    std::string transportError;
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
};

// The URL and the signed headers of a request at `amzDate` ("YYYYMMDDTHHMMSSZ"); no
// Authorization for an anonymous configuration.
struct Signed {
    std::string url;
    std::vector<std::string> headers;  // "Name: value"
};
Signed sign(const Config& config, const Request& request, const std::string& amzDate);

// Percent-encoding of S3's canonical form: every byte but A-Z a-z 0-9 - . _ ~ (and "/"
// when `keepSlash`).
std::string uriEncode(std::string_view raw, bool keepSlash);

class Client {
public:
    static Client& instance();
    // One request, made again after a 5xx, a 429 or SlowDown, or a dropped connection,
    // at most four times in all with growing pauses.
    Response send(const Request& request);
    [[nodiscard]] Config config();
    // Reads the configuration again and drops the kept connections.
    void reload();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client();

private:
    Client();
    Response sendOnce(const Config& config, const Request& request);
    struct Pool;
    Pool* pool_;
};

}  // namespace foundation::storage::s3
