#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "infra/ParameterTrie.h"
#include "infra/TomlConfiguration.h"

using namespace Quorvex;

namespace
{

TSHandle<MapConfiguration> parse(const std::string& in_strText)
{
    std::string error;
    auto hConfig = TomlConfiguration::parse(in_strText, "test.toml", error);
    EXPECT_FALSE(hConfig.isNull()) << error;
    return hConfig;
}

}  // namespace

TEST(TomlConfigurationTest, TablesListsAndQuotedKeysBecomeDottedKeys)
{
    const auto hConfig = parse(
        "[quorvex.sip]\n"
        "listen = [\"udp:127.0.0.1:5060\", \"tcp:127.0.0.1:5060\"]\n"
        "state.Disconnecting.timeoutMs = 5000\n"
        "[[quorvex.sip.registration]]\naor = \"sip:a@x\"\n"
        "[[quorvex.sip.registration]]\naor = \"sip:b@x\"\n"
        "[quorvex.log]\nlevels = { \"quorvex.sip.message\" = \"DEBUG\" }\nfraction = 0.5\nempty = []\n");
    std::string text;
    EXPECT_TRUE(hConfig->getString("quorvex.sip.listen.1", text));
    EXPECT_EQ(text, "tcp:127.0.0.1:5060");
    EXPECT_TRUE(hConfig->getString("quorvex.sip.registration.1.aor", text));
    EXPECT_EQ(text, "sip:b@x");
    EXPECT_TRUE(hConfig->getString("quorvex.log.levels.quorvex.sip.message", text));
    EXPECT_EQ(text, "DEBUG");
    int timeout = 0;
    EXPECT_TRUE(hConfig->getInteger("quorvex.sip.state.Disconnecting.timeoutMs", timeout));
    EXPECT_EQ(timeout, 5000);
    ASSERT_NE(hConfig->getNode("quorvex.sip.listen"), nullptr);
    EXPECT_EQ(hConfig->getNode("quorvex.sip.listen")->getChildren().size(), 2U);
    ASSERT_NE(hConfig->getNode("quorvex.log.empty"), nullptr);
    EXPECT_TRUE(hConfig->getNode("quorvex.log.empty")->getChildren().empty());
}

TEST(TomlConfigurationTest, WrongTypesAndRangesAreRefusedAndLeaveTheOutput)
{
    const auto hConfig = parse("text = \"x\"\nnumber = 4294967296\nflag = true\n");
    int number = 7;
    bool flag = false;
    std::string text = "before";
    EXPECT_FALSE(hConfig->getInteger("number", number));
    EXPECT_FALSE(hConfig->getInteger("text", number));
    EXPECT_FALSE(hConfig->getInteger("absent", number));
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(hConfig->getBoolean("text", flag));
    EXPECT_FALSE(hConfig->getString("flag", text));
    EXPECT_EQ(text, "before");
    EXPECT_EQ(hConfig->getStringOr("absent", "default"), "default");
}

TEST(TomlConfigurationTest, ErrorsAreOneLineWithPlace)
{
    struct Case
    {
        const char* m_szText;
        const char* m_szPlace;
    };
    static constexpr Case kCases[] = {
        {"a = 1\nb = \n",        "test.toml:2:"},
        {"[quorvex\nx = 1\n",    "test.toml:1:"},
        {"a = \"unterminated\n", "test.toml:1:"},
        {"a = 1\na = 2\n",       "test.toml:"  },
        {"\xff\xfe = 1\n",       "test.toml:"  },
    };
    for (const Case& c : kCases)
    {
        std::string error;
        EXPECT_TRUE(TomlConfiguration::parse(c.m_szText, "test.toml", error).isNull()) << c.m_szText;
        EXPECT_EQ(error.rfind(c.m_szPlace, 0), 0U) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    std::string error;
    EXPECT_TRUE(TomlConfiguration::load("/nonexistent/file.toml", error).isNull());
    EXPECT_EQ(error, "/nonexistent/file.toml: cannot be read: No such file or directory");
    EXPECT_TRUE(TomlConfiguration::load("/", error).isNull());
    EXPECT_NE(error.find("directory"), std::string::npos);
}

TEST(ParameterTrieTest, KeysBeyondTheSharedOnesAndChangesInTheMiddleKeepTheTree)
{
    // More different keys than are shared, from several threads at a time; each tree has its own order.
    constexpr int kKeys = 1500;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [t]
            {
                ParameterTrie trie;
                for (int i = 0; i < kKeys; ++i)
                {
                    const std::string strGroup = std::to_string((i + t) % 7);
                    trie.set("keys." + strGroup + ".name" + std::to_string((i + 100 * t) % kKeys), i);
                }
                const ParameterTrie copy(trie);
                trie.set("keys.3." + std::string(100, 'x') + ".y", true);
                trie.set("other", 1);
                EXPECT_EQ(copy.find("other"), nullptr);
                EXPECT_EQ(trie.find("")->getChildren().size(), 2U);
                std::size_t count = 0;
                for (const ParameterTrieNode* pGroup : trie.find("keys")->getChildren())
                {
                    for (const ParameterTrieNode* pNode : pGroup->getChildren())
                    {
                        ++count;
                        EXPECT_EQ(trie.find(pNode->getFullName()), pNode);
                        EXPECT_TRUE(pNode->getFullName().starts_with(pGroup->getFullName() + "."));
                    }
                }
                EXPECT_EQ(count, kKeys + 1U);
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST(ParameterTrieTest, NodesKeepValuesChildrenAndOrder)
{
    ParameterTrie trie;
    trie.set("media.rtp.video", "inactive");
    trie.set("media.rtp.audio", "sendrecv");
    trie.set("media.rtp.audio.redirectReceive", true);
    trie.set("media.rtp.video", "recvonly");
    trie.set("", "ignored");
    const ParameterTrieNode* pNode = trie.find("media.rtp");
    ASSERT_NE(pNode, nullptr);
    ASSERT_EQ(pNode->getChildren().size(), 2U);
    EXPECT_EQ(pNode->getChildren()[0]->getName(), "video");
    EXPECT_EQ(pNode->getChildren()[0]->getValue().toText(), "recvonly");
    EXPECT_EQ(pNode->getChildren()[1]->getFullName(), "media.rtp.audio");
    EXPECT_EQ(trie.find("media.rtp.text"), nullptr);
    EXPECT_EQ(trie.findValue("media.rtp"), nullptr);

    ParameterTrie copy(trie);
    copy.set("media.rtp.audio", "sendonly");
    EXPECT_EQ(trie.findValue("media.rtp.audio")->toText(), "sendrecv");
    ParameterTrie third;
    third = trie;
    trie.set("media.rtp.video.codec", 1.5);  // nor does a change of the original reach its copies
    EXPECT_EQ(third.find("media.rtp.video.codec"), nullptr);
    EXPECT_EQ(trie.find("media.rtp")->getChildren()[0]->getChild("codec")->getValue().toText(), "1.5");
    trie.clear();
    EXPECT_TRUE(trie.empty());
    EXPECT_EQ(third.find("media.rtp")->getChildren()[1]->getValue().toText(), "sendrecv");
    ParameterTrie moved(std::move(copy));
    copy.set("a.b", 1);  // a moved-from trie is empty and usable
    EXPECT_EQ(moved.findValue("media.rtp.audio")->toText(), "sendonly");
}
