// The launcher's console, as a browser and as somebody who means it no good would use it.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <thread>
#include <vector>

#include "Http.h"
#include "Scenes.h"
#include "board/Board.h"

namespace {

using http::Connection;
using support::Command;
using support::operator+;
using support::Panel;
using support::waitUntil;

const std::string kHost = "Host: localhost\r\n";
const std::string kJson = "Content-Type: application/json\r\n";

std::string line(const std::string& method, const std::string& path)
{
    return method + " " + path + " HTTP/1.1\r\n";
}

/// A panel with the daemon on it, and the port of its console.
class Console : public testing::Test {
protected:
    void SetUp() override
    {
        panel_.start(
            {"--cpu", "dual-lite", "--fps", std::to_string(30 / scenes::kSlowness), "--console", "0"},
            {support::program("velcamd")}, Panel::Reader::kNone);
        const std::string words = "console at http://127.0.0.1:";
        ASSERT_TRUE(waitUntil([&] { return panel_.errors().find(words) != std::string::npos; }))
            << panel_.errors();
        port_ = static_cast<uint16_t>(std::atoi(panel_.errors().substr(words.size() + 8).c_str()));
        // The console is there before the daemon, whose queues and signal handlers come later still.
        ASSERT_TRUE(awaitEvent("\"state\":\"idle\"")) << panel_.errors();
    }

    void TearDown() override
    {
        if (panel_.running()) {
            EXPECT_EQ(panel_.end(), 0) << panel_.errors();
        }
    }

    std::string get(const std::string& path) const { return http::get(port_, path); }
    int post(const std::string& path, const std::string& json) const
    {
        return http::statusOf(http::post(port_, path, json));
    }
    Connection open(const std::string& path) const
    {
        Connection connection(port_);
        connection.send(line("GET", path) + kHost + "\r\n");
        return connection;
    }
    static bool brings(Connection& stream, const std::string& text)
    {
        return stream.readUntil(text).find(text) != std::string::npos;
    }
    /// Reads the events until one holds the text; false when none did.
    bool awaitEvent(const std::string& text) const
    {
        Connection events = open("/events");
        return brings(events, text);
    }

    Panel panel_;
    uint16_t port_ = 0;
};

TEST_F(Console, RequestsReachTheDaemonAndItsReportsThePage)
{
    EXPECT_NE(get("/").find("<title>"), std::string::npos);
    EXPECT_EQ(post("/api/state", R"({"state": "camera", "channels": [1, 2]})"), 204);
    EXPECT_TRUE(awaitEvent("\"state\":\"camera\""));
    EXPECT_EQ(post("/api/channels", R"({"channels": [2]})"), 204);
    EXPECT_TRUE(panel_.awaitSnapshot([](const support::Png& picture) {
        return scenes::cameraIn(picture, scenes::onePane(scenes::kCameraX, scenes::kCameraY)) == 2;
    }));
    EXPECT_EQ(post("/api/bitrate", R"({"kbps": 4000})"), 204);
    EXPECT_TRUE(awaitEvent("\"kbps\":4000"));
    EXPECT_EQ(post("/api/play", R"({"name": "no such video"})"), 204);
    EXPECT_TRUE(awaitEvent("event: log\ndata: \""));
}

TEST_F(Console, ThePanelComesAsOnePictureAfterTheOther)
{
    Connection live = open("/live");
    constexpr int kPictures = 3;
    for (int i = 0; i < kPictures; ++i) {
        const std::string text = live.readUntil("\xFF\xD9\r\n--picture\r\n");
        EXPECT_NE(text.find("\r\n\r\n\xFF\xD8\xFF"), std::string::npos)
            << "a JPEG picture from its beginning";
    }
}

TEST_F(Console, ARecordingIsListedAndDownloadedAsFarAsItHasGrown)
{
    ASSERT_TRUE(awaitEvent("\"name\":\"cam.avi\""));
    std::string body;
    ASSERT_TRUE(waitUntil([&] { return (body = http::bodyOf(get("/recordings/cam.avi"))).size() > 10000; }));
    EXPECT_EQ(panel_.end(), 0);
    const std::string whole = support::readFile(panel_.recording());
    EXPECT_EQ(whole.compare(0, body.size(), body), 0) << "the beginning of the file";
}

TEST_F(Console, TheLogFollowsTheFileAsItGrowsAndBeginsAnew)
{
    Connection events = open("/events");
    const std::string log = panel_.file("/tmp/VelCam.log");
    ASSERT_TRUE(brings(events, "Started core thread"));
    std::ofstream(log, std::ios::app) << "grown \xFF by this\n";
    EXPECT_TRUE(brings(events, "by this"));
    ASSERT_TRUE(support::writeFile(log, "anew\n"));
    EXPECT_TRUE(brings(events, "anew"));
}

struct Request {
    const char* name;
    int status;  ///< 0: dropped without an answer
    std::string text;
};

std::string withBody(const std::string& path, const std::string& body,
                     const std::string& headers = kHost + kJson)
{
    return line("POST", path) + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

std::vector<Request> refusedRequests()
{
    const std::string get = line("GET", "/");
    const std::string large(100000, 'a');
    std::vector<Request> requests{
        {"UnknownPath", 404, line("GET", "/nothing") + kHost + "\r\n"},
        {"UnknownMethod", 405, line("DELETE", "/recordings/cam.avi") + kHost + "\r\n"},
        {"PostToThePage", 405, withBody("/", "")},
        {"GetOfARequest", 405, line("GET", "/api/state") + kHost + "\r\n"},
        {"NoHost", 400, get + "\r\n"},
        {"ForeignHost", 403, get + "Host: bench.example\r\n\r\n"},
        {"HostThatLooksLocal", 403, get + "Host: localhost.example:80\r\n\r\n"},
        {"HostWithoutPort", 403, get + "Host: localhost:\r\n\r\n"},
        {"ForeignOrigin", 403,
         withBody("/api/state", "{}", kHost + kJson + "Origin: http://bench.example\r\n")},
        {"OriginOnAnotherPort", 403, get + kHost + "Origin: http://localhost:81\r\n\r\n"},
        {"NullOrigin", 403, get + kHost + "Origin: null\r\n\r\n"},
        {"ForeignSite", 403, line("GET", "/panel.jpg") + kHost + "Sec-Fetch-Site: cross-site\r\n\r\n"},
        {"FormsType", 415, withBody("/api/state", "{}", kHost + "Content-Type: text/plain\r\n")},
        {"LongHeader", 431, get + kHost + "X: " + large + "\r\n\r\n"},
        {"LongPath", 414, line("GET", "/" + large) + kHost + "\r\n"},
        {"LongBody", 413, withBody("/api/play", large)},
        {"LengthBeyondNumbers", 413,
         line("POST", "/api/play") + kHost + kJson + "Content-Length: 18446744073709551615\r\n\r\n"},
        {"LongBodyInPieces", 0,
         line("POST", "/api/play") + kHost + kJson + "Transfer-Encoding: chunked\r\n\r\n186A0\r\n" + large +
             "\r\n0\r\n\r\n"},
        {"NoRequestAtAll", 400, std::string("\x16\x03\x01 not HTTP\r\n\r\n")}};
    const std::vector<const char*> wrongTexts{
        "",
        "{",
        "[]",
        "null",
        R"({"state": "play", "channels": []})",
        R"({"state": "walk", "channels": []})",
        R"({"state": "camera"})",
        R"({"state": "camera", "channels": [1, 2, 3, 4, 1]})",
        R"({"state": "camera", "channels": [5]})",
        R"({"state": "camera", "channels": [-1]})",
        R"({"state": "camera", "channels": ["1"]})",
        R"({"state": 2, "channels": [1]})",
    };
    for (const char* text : wrongTexts) {
        requests.push_back({"State", 400, withBody("/api/state", text)});
    }
    const std::string deep(4000, '[');
    requests.push_back({"Nesting", 400, withBody("/api/channels", deep)});
    for (const char* text : {R"({"kbps": 3000})", R"({"kbps": 4294968296})", R"({"kbps": "1000"})"}) {
        requests.push_back({"Bitrate", 400, withBody("/api/bitrate", text)});
    }
    for (const std::string& name : {std::string(), std::string(99, 'x'), std::string("\\u0000")}) {
        requests.push_back({"Name", 400, withBody("/api/play", R"({"name": ")" + name + "\"}")});
    }
    return requests;
}

TEST_F(Console, WhatIsNoGoodRequestIsRefusedOrDropped)
{
    for (const Request& request : refusedRequests()) {
        SCOPED_TRACE(request.name);
        Connection connection(port_);
        connection.send(request.text);
        const std::string answer = connection.readUntil("\r\n\r\n");
        EXPECT_EQ(http::statusOf(answer), request.status) << request.text.substr(0, 300) << answer;
    }
    EXPECT_EQ(http::statusOf(get("/")), 200);
    EXPECT_TRUE(awaitEvent("\"state\":\"idle\"")) << "none of them may have got through";
}

TEST_F(Console, NothingOutsideTheBoardsRecordingsIsServed)
{
    const std::string folder = panel_.file("/velmarine/f/camrecord/");
    ASSERT_TRUE(support::writeFile(panel_.file("/velmarine/secret"), "secret"));
    std::filesystem::create_symlink("/etc/passwd", folder + "link.avi");
    std::filesystem::create_directory(folder + "folder.avi");
    ASSERT_EQ(::mkfifo((folder + "pipe.avi").c_str(), 0600), 0);
    for (const char* path :
         {"link.avi", "folder.avi", "pipe.avi", "", ".", "..", "../../secret", "%2e%2e/%2e%2e/secret",
          "..%2f..%2fsecret", "/etc/passwd", "%2fetc%2fpasswd", "folder.avi/../../../secret", "none.avi"}) {
        const std::string answer = get(std::string("/recordings/") + path);
        EXPECT_EQ(http::statusOf(answer), 404) << path << "\n" << answer;
    }
    Connection events = open("/events");
    const std::string files = events.readUntil("\"videos\"");
    EXPECT_EQ(files.find("link.avi"), std::string::npos);
    EXPECT_EQ(files.find("pipe.avi"), std::string::npos);

    // The folder itself may have become a link.
    std::filesystem::rename(panel_.file("/velmarine/f/video"), panel_.file("/velmarine/f/old"));
    std::filesystem::create_symlink("/etc", panel_.file("/velmarine/f/video"));
    EXPECT_FALSE(get("/").empty());
    Connection later = open("/events");
    EXPECT_EQ(later.readUntil("event: board").find("passwd"), std::string::npos);
}

TEST_F(Console, ConnectionsThatSayNothingAreDroppedAndOthersGetTheirTurn)
{
    constexpr int kMoreThanItTakes = 60;
    std::deque<Connection> idle;
    for (int i = 0; i < kMoreThanItTakes; ++i) {
        idle.emplace_back(port_);
        ASSERT_TRUE(idle.back().isOpen());
        idle.back().send(i % 2 == 0 ? "" : "GET / HT");
    }
    EXPECT_TRUE(waitUntil([this] { return http::statusOf(get("/")) == 200; }));
    for (Connection& connection : idle) {
        EXPECT_TRUE(connection.awaitEnd());
    }
}

TEST_F(Console, EndsWithTheDaemonAlthoughSomebodyWatches)
{
    std::deque<Connection> watching;
    for (const char* path : {"/events", "/live", "/live"}) {
        watching.push_back(open(path));
        EXPECT_NE(watching.back().readUntil("\r\n\r\n"), "");
    }
    EXPECT_EQ(panel_.end(), 0);
    for (Connection& connection : watching) {
        EXPECT_TRUE(connection.awaitEnd());
    }
}

TEST_F(Console, FloodsOfRequestsDoNotGetThroughToTheDaemon)
{
    constexpr int kFlood = 200;
    int taken = 0;
    int refused = 0;
    const auto began = support::Clock::now();
    for (int i = 0; i < kFlood; ++i) {
        const int status = post("/api/channels", R"({"channels": [1]})");
        taken += status == 204 ? 1 : 0;
        refused += status == 429 ? 1 : 0;
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(support::Clock::now() - began);
    EXPECT_EQ(taken + refused, kFlood);
    EXPECT_LE(taken, 20 * (static_cast<int>(seconds.count()) + 2));
}

/// Somebody who does all at once and again what a console dislikes, until told to stop.
class Crowd {
public:
    explicit Crowd(uint16_t port)
    {
        struct Wish {
            const char* path;
            const char* enough;
        };
        for (const Wish wish : {Wish{"/live", "--picture\r\nContent-Type"}, Wish{"/live", "\r\n\r\n"},
                                Wish{"/events", "event: board"}, Wish{"/panel.jpg", ""},
                                Wish{"/recordings/cam.avi", ""}, Wish{"/nothing", ""}}) {
            members_.emplace_back([this, port, wish] {
                stepBack();
                while (!stop_) {
                    Connection connection(port);
                    connection.send(line("GET", wish.path) + kHost + "Connection: close\r\n\r\n");
                    connection.readUntil(wish.enough);
                }
            });
        }
        members_.emplace_back([this, port] {
            stepBack();
            while (!stop_) {
                Connection connection(port);
                connection.send("GET / HTTP/1.1\r\nX: " + std::string(200000, 'x'));
            }
        });
        // Watches, and never reads.
        for (int i = 0; i < kDeaf; ++i) {
            deaf_.emplace_back(port);
            deaf_.back().send(line("GET", "/live") + kHost + "\r\n");
        }
    }
    ~Crowd()
    {
        stop_ = true;
        for (std::thread& member : members_) {
            member.join();
        }
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

private:
    /// Visitors come from elsewhere: what they cost themselves must not count.
    static void stepBack()
    {
        constexpr int kLowest = 19;
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), kLowest);
    }

    static constexpr int kDeaf = 8;
    std::atomic<bool> stop_{false};
    std::vector<std::thread> members_;
    std::deque<Connection> deaf_;
};

/// Frames that were recorded for each one that the first camera had to give, over some time.
double shareRecorded(const board::State& state)
{
    constexpr uint64_t kFrames = 90 / scenes::kSlowness;
    const auto given = [&] { return state.cameras[0].delivered + state.cameras[0].dropped; };
    const uint64_t givenBefore = given();
    const uint64_t recordedBefore = state.framesEncoded;
    EXPECT_TRUE(waitUntil([&] { return given() >= givenBefore + kFrames; }));
    return static_cast<double>(state.framesEncoded - recordedBefore) /
           static_cast<double>(given() - givenBefore);
}

/// A busy machine loses frames too, so stretches with visitors alternate with quiet ones: visitors who cost
/// some do so in each of the former.
TEST_F(Console, CostsTheRecordingAFrameForItsVisitors)
{
    constexpr int kStretches = 4;
    constexpr double kNoise = 0.8;
    const board::Board board(panel_.board());
    ASSERT_TRUE(board.usable());
    ASSERT_TRUE(waitUntil([&] { return board.state().framesEncoded > 0; }));
    for (int stretch = 0; stretch < kStretches; ++stretch) {
        const double alone = shareRecorded(board.state());
        const Crowd crowd(port_);
        const double crowded = shareRecorded(board.state());
        std::printf("recorded of the camera's frames: %.3f alone, %.3f with visitors\n", alone, crowded);
        if (crowded >= kNoise * alone) {
            return;
        }
    }
    ADD_FAILURE() << "the visitors cost frames";
}

TEST(ConsoleAddress, OnlyNumericAddressesAndPortsAreTaken)
{
    for (const char* wrong : {"x", "65536", "-1", "8080x", "host:80", "1.2.3:80", "::1:80", "[::1]", "[::1",
                              ":80", "127.0.0.1:"}) {
        const auto outcome =
            support::runToEnd({support::program("vboard"), "run", "--console", wrong, "true"});
        EXPECT_EQ(outcome.status, 2) << wrong;
        EXPECT_EQ(std::count(outcome.error.begin(), outcome.error.end(), '\n'), 1) << outcome.error;
    }
}

TEST_F(Console, APortThatIsTakenIsSaidBeforeAnythingIsRun)
{
    support::Folder folder;
    const auto outcome =
        support::runToEnd({support::program("vboard"), "run", "--board", folder.file("board"), "--console",
                           std::to_string(port_), "--", "/bin/echo", "ran"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.output, "");
    EXPECT_NE(outcome.error.find("cannot listen at 127.0.0.1 port " + std::to_string(port_)),
              std::string::npos)
        << outcome.error;
}

}  // namespace
