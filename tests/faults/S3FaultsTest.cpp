// The s3 provider against servers that misbehave, each a small listener in a thread:
// none at all, one that is busy before it answers, one that refuses, and one whose
// listing breaks off in the middle of a page.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/S3.hpp"

#include "foundation/storage/provider/S3Provider.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/Folder.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

namespace {

namespace vfs = foundation::storage::vfs;

// Answers each request (the request's first line, its number from 0) with the bytes the
// function gives, then closes the connection.
class Listener {
public:
    using Answer = std::function<std::string(const std::string& line, int n)>;

    explicit Listener(Answer answer) : answer_(std::move(answer)) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof a;
        if (::bind(fd_, reinterpret_cast<sockaddr*>(&a), size) != 0 || ::listen(fd_, 16) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &size) != 0) {
            throw std::runtime_error("listener");
        }
        port_ = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }

    ~Listener() {
        ::shutdown(fd_, SHUT_RDWR);  // wakes accept()
        thread_.join();
        ::close(fd_);
    }

    [[nodiscard]] std::string endpoint() const {
        return "http://127.0.0.1:" + std::to_string(port_);
    }
    [[nodiscard]] int requests() const { return count_; }

private:
    void serve() {
        for (int c; (c = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            std::string request;
            char buffer[4096];
            for (long n; request.find("\r\n\r\n") == std::string::npos &&
                         (n = ::read(c, buffer, sizeof buffer)) > 0;) {
                request.append(buffer, static_cast<std::size_t>(n));
            }
            const std::string reply = answer_(request.substr(0, request.find("\r\n")), count_++);
            for (std::size_t at = 0; at < reply.size();) {
                const long n = ::write(c, reply.data() + at, reply.size() - at);
                if (n <= 0) break;
                at += static_cast<std::size_t>(n);
            }
            ::close(c);
        }
    }

    Answer answer_;
    int fd_ = -1;
    int port_ = 0;
    std::atomic<int> count_{0};
    std::thread thread_;
};

std::string response(int status, const std::string& reason, const std::string& body) {
    return "HTTP/1.1 " + std::to_string(status) + " " + reason +
           "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

std::string s3Error(int status, const std::string& code, const std::string& message) {
    return response(status, code,
                    "<?xml version=\"1.0\"?><Error><Code>" + code + "</Code><Message>" + message +
                        "</Message></Error>");
}

class S3Faults : public ::testing::Test {
protected:
    void pointAt(const std::string& endpoint) {
        ::setenv("AWS_ENDPOINT_URL", endpoint.c_str(), 1);
        ::setenv("AWS_ACCESS_KEY_ID", "AKIDEXAMPLE", 1);
        ::setenv("AWS_SECRET_ACCESS_KEY", "wJalrXUtnFEMI/K7MDENG+bPxRfiCYEXAMPLEKEY", 1);
        foundation::storage::provider::reloadS3Configuration();
    }
    void TearDown() override {
        if (!zkfs::test::useLocalS3()) ::unsetenv("AWS_ENDPOINT_URL");
        foundation::storage::provider::reloadS3Configuration();
    }

    static vfs::Exception failureOf(const std::function<void()>& f) {
        try {
            f();
        } catch (const vfs::Exception& e) {
            return e;
        }
        ADD_FAILURE() << "no storage error";
        return {0, vfs::AbsoluteIRI(u"s3://none/")};
    }

    static vfs::AbsoluteIRI at(const char16_t* text) { return vfs::AbsoluteIRI(text); }
    vfs::StorageSystemReference storage_;
};

TEST_F(S3Faults, NoServerIsAnIoErrorWithCurlsText) {
    int port = 0;
    {
        const Listener gone([](const std::string&, int) { return std::string(); });
        port = std::stoi(gone.endpoint().substr(17));
    }
    pointAt("http://127.0.0.1:" + std::to_string(port));
    const vfs::Exception e =
        failureOf([&] { (void)vfs::exists(at(u"s3://bucket/a.txt"), storage_); });
    EXPECT_EQ(e.getErrorCode(), 5);
    EXPECT_NE(e.getSystemText().find("onnect"), std::string::npos) << e.getSystemText();
}

TEST_F(S3Faults, ABusyServerIsAskedAgainThenGivenUpOnWithItsText) {
    const std::string slowDown = s3Error(503, "SlowDown", "Please reduce your request rate.");
    const Listener busyOnce(
        [&](const std::string&, int n) { return n == 0 ? slowDown : response(200, "OK", ""); });
    pointAt(busyOnce.endpoint());
    EXPECT_EQ(vfs::exists(at(u"s3://bucket/a.txt"), storage_),
              foundation::storage::provider::ExistenceType::File);
    EXPECT_EQ(busyOnce.requests(), 2);

    const Listener busy([&](const std::string&, int) { return slowDown; });
    pointAt(busy.endpoint());
    const vfs::Exception e =
        failureOf([&] { (void)vfs::Folder(at(u"s3://bucket/d"), storage_).listAll(u""); });
    EXPECT_EQ(e.getErrorCode(), 5);
    EXPECT_EQ(e.getSystemText(), "HTTP 503 SlowDown: Please reduce your request rate.");
    EXPECT_EQ(busy.requests(), 4);
}

TEST_F(S3Faults, ARefusalIsPermissionDenied) {
    const Listener refusing([](const std::string& line, int) {
        // A refused HEAD has no body, as S3 sends it.
        return line.rfind("HEAD", 0) == 0 ? response(403, "Forbidden", "")
                                          : s3Error(403, "AccessDenied", "Access Denied");
    });
    pointAt(refusing.endpoint());
    EXPECT_EQ(
        failureOf([&] { (void)vfs::exists(at(u"s3://bucket/a.txt"), storage_); }).getErrorCode(),
        2);
    EXPECT_EQ(zkfs::test::call("[ok, msg, id] = mkFileFcn('s3://bucket/d/a.txt')")["outputs"][2],
              zkfs::test::valueOf("\"QUORIN:virtualfilesystem:permissionDenied\""));
    // The query passes a storage failure on as it is.
    const qfs::Json denied = zkfs::test::call("p = getPerms_impl('s3://bucket/d', 'Folder', 'R')");
    EXPECT_EQ(denied["error"]["identifier"], "QUORIN:storage:permissionDenied");
}

TEST_F(S3Faults, AListingCutOffMidPageGivesNothing) {
    const std::string page1 =
        "<ListBucketResult><IsTruncated>true</IsTruncated><NextContinuationToken>t2"
        "</NextContinuationToken><Contents><Key>d/a.txt</Key></Contents></ListBucketResult>";
    const std::string page2 =
        "<ListBucketResult><IsTruncated>false</IsTruncated><Contents><Key>d/b";
    const Listener cutting([&](const std::string& line, int) {
        if (line.find("continuation-token") == std::string::npos) return response(200, "OK", page1);
        // Promises more than it sends, then closes: a connection dropped mid-page.
        return "HTTP/1.1 200 OK\r\nContent-Length: 4096\r\n\r\n" + page2;
    });
    pointAt(cutting.endpoint());
    const vfs::Exception e =
        failureOf([&] { (void)vfs::Folder(at(u"s3://bucket/d"), storage_).listAllRecursive(u""); });
    EXPECT_EQ(e.getErrorCode(), 5);
    EXPECT_FALSE(e.getSystemText().empty());
    EXPECT_EQ(cutting.requests(), 1 + 4);  // the first page, then the second four times
}

}  // namespace
