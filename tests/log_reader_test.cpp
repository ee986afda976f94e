// A log file in the order of time, and followed, over the wraps and restarts of whoever writes it.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "farlink/log/log_findings.h"
#include "farlink/log/log_follower.h"
#include "farlink/log/log_text.h"

using namespace farlink;  // NOLINT(google-build-using-namespace): what is tested

namespace {

// The monitor's writer on a file in memory: a line and its marker are two writes.
class Writer : public LogBytes {
public:
    explicit Writer(std::size_t sizeLimit) : limit(sizeLimit) {}

    std::string Line(std::size_t size)
    {
        const unsigned second = ++count;
        char head[64];
        std::snprintf(head, sizeof head, "%02u:%02u:%02u.%03u N/A 0x00000001\t", second / 3600 % 24,
                      second / 60 % 60, second % 60, second % 1000);
        std::string line = head + std::to_string(count) + " ";
        line.resize(std::max(line.size(), size), 'x');
        return line;
    }
    void PutLine(const std::string& line)
    {
        written.push_back(line);
        if (limit != 0 && bytesInPass > limit) {
            content.resize(place);
            place = 0;
            bytesInPass = 0;
        }
        Put(line + "\r\n");
        bytesInPass += line.size() + 2;
    }
    void PutMarker()
    {
        if (limit == 0)
            return;
        Put(std::string(kWrapMarker));
        place -= kWrapMarker.size();
    }
    void Write(std::size_t size = 40)
    {
        PutLine(Line(size));
        PutMarker();
    }
    void Restart()
    {
        place = content.size();
        bytesInPass = place;
    }

    std::uint64_t Size() override { return content.size(); }
    std::string Read(std::uint64_t from, std::uint64_t to) override
    {
        return from < content.size() ? content.substr(from, to - from) : "";
    }

    std::string content;
    std::vector<std::string> written;
    std::size_t limit;

private:
    void Put(const std::string& bytes)
    {
        content.resize(std::max(content.size(), place + bytes.size()));
        content.replace(place, bytes.size(), bytes);
        place += bytes.size();
    }

    std::size_t place = 0;
    std::size_t bytesInPass = 0;
    unsigned count = 0;
};

std::vector<std::string> Ordered(LogBytes& file, std::uint64_t most = ~std::uint64_t{0})
{
    const NewestLines newest = ReadNewestLines(file, most);
    const auto records = RecordsOf(newest.lines);
    return {records.begin(), records.end()};
}

std::vector<std::string> Ordered(const std::string& content)
{
    Writer file(0);
    file.content = content;
    return Ordered(file);
}

std::vector<std::string> LastOf(const std::vector<std::string>& lines, std::size_t count)
{
    return {lines.end() - static_cast<std::ptrdiff_t>(std::min(count, lines.size())), lines.end()};
}

class Following {
public:
    explicit Following(Writer& followed) : follower(followed) {}
    void Look()
    {
        const LogFollower::News news = follower.Look();
        seen.insert(seen.end(), news.records.begin(), news.records.end());
        incomplete = incomplete || news.incomplete;
    }
    std::vector<std::string> seen;
    bool incomplete = false;

private:
    LogFollower follower;
};

}  // namespace

TEST(LogOrder, IsThatOfTimeAtEachPlaceOfEachPass)
{
    std::mt19937 random(1);
    Writer writer(600);
    for (int i = 0; i < 300; ++i) {
        writer.Write(30 + random() % 60);
        const std::vector<std::string> records = Ordered(writer.content);
        EXPECT_EQ(LastOf(writer.written, records.size()), records) << writer.content;
        // All that is whole in the file comes; what a line and a marker have run over doesn't.
        const auto whole = std::ranges::count_if(writer.written, [&](const std::string& line) {
            return writer.content.find(line + "\r\n") != std::string::npos;
        });
        EXPECT_EQ(static_cast<std::size_t>(whole), records.size()) << writer.content;
    }
}

TEST(LogOrder, KeepsTheLinesBehindTheMarkerOfAnEarlierProcess)
{
    Writer writer(1000);
    for (int process = 0; process < 3; ++process) {
        writer.Write();
        writer.Write();
        writer.Restart();
    }
    EXPECT_EQ(writer.written, Ordered(writer.content));

    // The first process has wrapped: only the order of the second one's lines is sure.
    Writer wrapped(200);
    for (int i = 0; i < 8; ++i)
        wrapped.Write();
    wrapped.limit = 100000;
    wrapped.Restart();
    for (int i = 0; i < 3; ++i)
        wrapped.Write();
    EXPECT_EQ(LastOf(wrapped.written, 3), LastOf(Ordered(wrapped.content), 3));
}

TEST(LogOrder, AnOverlongFileIsReadFromItsNewStart)
{
    Writer writer(0);
    for (int i = 0; i < 20; ++i)
        writer.Write();
    writer.limit = 100;
    writer.Restart();
    writer.Write();
    std::vector<std::string> expected(writer.written.begin() + 2, writer.written.end());
    EXPECT_EQ(expected, Ordered(writer.content));
}

TEST(LogOrder, OfTheNewestBytesIsThatOfTheWholeFile)
{
    Writer writer(2000);
    for (int i = 0; i < 60; ++i) {
        writer.Write(30 + static_cast<std::size_t>(i));
        const std::vector<std::string> all = Ordered(writer);
        for (std::uint64_t most = 0; most < 2200; most += 93) {
            const std::vector<std::string> newest = Ordered(writer, most);
            EXPECT_EQ(LastOf(all, newest.size()), newest) << most;
            EXPECT_LE(most, 200 + newest.size() * 100 + (newest.size() == all.size() ? 4000 : 0));
        }
    }
}

TEST(LogOrder, OfAFileCutAnywhereHoldsNothingButLinesOfIt)
{
    Writer writer(300);
    for (int i = 0; i < 20; ++i)
        writer.Write(35 + static_cast<std::size_t>(i));
    for (std::size_t size = 0; size <= writer.content.size(); ++size) {
        SCOPED_TRACE(size);
        std::size_t torn = 0;
        for (const std::string& record : Ordered(writer.content.substr(0, size)))
            torn += std::ranges::find(writer.written, record) == writer.written.end();
        EXPECT_LE(torn, 1u) << "the one at the cut";
    }
}

TEST(LogOrder, SurvivesWhateverAFileHolds)
{
    const std::string marker(kWrapMarker);
    std::mt19937 random(2);
    std::string noise(100000, '\0');
    std::ranges::generate(noise, [&] { return "\0\r\n\t:0=wrap ."[random() % 12]; });
    for (const std::string& content :
         {std::string(), std::string(3 << 20, 'x'), std::string(5000, '\0'), std::string(5000, '\n'), marker,
          marker + marker + marker, "x" + marker, marker + "half", marker.substr(1) + marker, noise}) {
        for (const std::string& record : Ordered(content))
            EXPECT_FALSE(record.empty() || record.ends_with('\n'));
        Writer writer(0);
        writer.content = content;
        Following following(writer);
        following.Look();
        writer.content += marker + "10:00:00.000 N/A 0x1\ta\r\n";
        following.Look();
        writer.content = "11:00:00.000 N/A 0x1\tb\r\n" + marker;
        following.Look();
        EXPECT_EQ("11:00:00.000 N/A 0x1\tb", following.seen.back()) << content.substr(0, 40);
    }
    // A message with a line feed of its own is one record.
    EXPECT_EQ((std::vector<std::string>{"10:00:00.000 N/A 0x1\ta\nb", "10:00:01.000 N/A 0x1\tc"}),
              Ordered("10:00:00.000 N/A 0x1\ta\nb\r\n\r\n10:00:01.000 N/A 0x1\tc\r\n"));
}

TEST(LogFields, AreEmptyWhereThereAreNone)
{
    const LogFields fields = FieldsOf("22:12:45.751 10.0.0.7:9100 0x00002E2E\t    {A::B: x\ty");
    EXPECT_EQ("22:12:45.751", fields.time);
    EXPECT_EQ("10.0.0.7:9100", fields.tag);
    EXPECT_EQ("0x00002E2E", fields.thread);
    EXPECT_EQ("    {A::B: x\ty", fields.message);
    EXPECT_EQ("22:12:45 torn", FieldsOf("22:12:45 torn").message);
    EXPECT_EQ("N/A", FieldsOf("22:12:45.751 N/A").tag);
}

TEST(LogSince, MeansTheLastTimeThatItWasSoLate)
{
    const auto since = [](const char* time) {
        std::vector<std::string_view> records = {"22:00:00.000 a", "23:30:00.000 b", "00:10:00.500 c",
                                                 "01:00:00.000 d"};
        DropBefore(time, records);
        return records.size();
    };
    EXPECT_EQ(2u, since("00:10:00"));
    EXPECT_EQ(1u, since("00:10:01"));
    EXPECT_EQ(3u, since("23:00:00"));
    EXPECT_EQ(4u, since("21:00:00"));
    EXPECT_EQ(2u, since("23:59:00"));
    std::vector<std::string_view> oneDay = {"10:00:00.010 a", "10:00:00.009 b", "torn"};
    DropBefore("10:00:01", oneDay);
    EXPECT_TRUE(oneDay.empty()) << "a time that is still to come";
}

TEST(LogFollowing, LosesAndRepeatsNothingHoweverOftenItLooks)
{
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Writer writer(seed % 5 == 0 ? 0 : seed % 2 == 0 ? 2000 : 100000);
        Following following(writer);
        for (int i = 0; i < 400; ++i) {
            writer.PutLine(writer.Line(seed % 3 == 0 ? 50 : 30 + random() % 150));
            if (seed % 2 == 0 && random() % 4 == 0)
                following.Look();  // between a line and its marker
            writer.PutMarker();
            if (random() % 4 == 0 || i % 8 == 0)
                following.Look();
            if (seed % 2 == 1 && random() % 50 == 0) {
                following.Look();
                writer.Restart();
            }
        }
        following.Look();
        EXPECT_FALSE(following.incomplete);
        const auto [wanted, got] = std::ranges::mismatch(writer.written, following.seen);
        ASSERT_TRUE(wanted == writer.written.end() && got == following.seen.end())
            << "after " << wanted - writer.written.begin() << " lines, got "
            << (got == following.seen.end() ? "nothing" : *got);
    }
}

// Short-lived processes on a full file each begin it anew, and write as much as the one before.
TEST(LogFollowing, SeesAProcessThatWritesOverTheLastOnesLines)
{
    Writer writer(500);
    for (int i = 0; i < 20; ++i)
        writer.Write();
    Following following(writer);
    following.Look();
    const std::size_t before = following.seen.size();
    for (int process = 0; process < 5; ++process) {
        writer.Restart();
        for (int i = 0; i < 3; ++i)
            writer.Write();
        following.Look();
    }
    EXPECT_FALSE(following.incomplete);
    EXPECT_EQ(LastOf(writer.written, 15), LastOf(following.seen, following.seen.size() - before));
}

TEST(LogFollowing, TellsWhenTheWriterWasFaster)
{
    Writer writer(500);
    Following following(writer);
    following.Look();
    writer.Write();
    following.Look();
    for (int i = 0; i < 100; ++i)
        writer.Write();
    following.Look();
    EXPECT_TRUE(following.incomplete);
    EXPECT_EQ(writer.written.back(), following.seen.back());
    std::vector<std::string> once = following.seen;
    std::ranges::sort(once);
    EXPECT_EQ(once.end(), std::ranges::adjacent_find(once));
}

TEST(LogFindings, AreTheLastWordsOfOnePortAndTheCauseOfEachFault)
{
    const std::string tag = "10.0.0.7:9100";
    const auto line = [](int second, const std::string& port, int thread, const std::string& message) {
        return "10:00:0" + std::to_string(second) + ".000 " + port + " 0x" + std::to_string(thread) + "\t" +
               message + "\r\n";
    };
    const std::string content =
        line(1, tag, 1, ":31:2e:31:30") + line(1, "N/A", 2, ":39:2e:39") +
        line(1, tag, 3, ":31:2e:31") +  // another thread's bytes in between
        line(1, tag, 1, "        {CCommProtocolVersion::Initialize") +
        line(2, tag, 1, "Received initial LPQInfo notification: queue position = 2.") +
        line(3, "other:1", 1, "Received asynchronous LPQInfo notification: queue position = 9.") +
        line(4, tag, 1, "        }A::Connect: ERROR: Failed to connect.") +
        line(4, tag, 1, "    }B::Open: ERROR: Failed to open data channel.") +
        line(4, tag, 1, "    }B::Open") + line(5, tag, 1, "A::Connect: ERROR: Call to recv() failed.") +
        line(5, tag, 3, "C::Tick: ERROR: Silence: ERROR: twice.");
    LogFindings found = FindInLog(RecordsOf(content), tag);
    ASSERT_TRUE(found.version && found.lastNote);
    EXPECT_EQ("1.10", found.version->text);
    EXPECT_EQ("10:00:02.000", found.lastNote->time);
    EXPECT_EQ("queue position = 2", found.lastNote->text);
    ASSERT_EQ(3u, found.failures.size());
    EXPECT_EQ("Failed to connect.", found.failures[0].text);
    EXPECT_EQ("10:00:05.000", found.failures[1].time);
    EXPECT_EQ("Silence: ERROR: twice.", found.failures[2].text);

    // Bytes that are no version aren't shown as one.
    const std::string garbage =
        line(1, tag, 1, ":1b:5b:32:4a") + line(1, tag, 1, "{CCommProtocolVersion::Initialize");
    found = FindInLog(RecordsOf(garbage), tag);
    EXPECT_FALSE(found.version || found.lastNote);
}
