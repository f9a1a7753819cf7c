#include <gtest/gtest.h>

#include <fstream>

#include "gateway/ConfigSchema.h"
#include "infra/TomlConfiguration.h"

namespace Quorvex
{
namespace
{

TEST(ConfigSchemaTest, ThePageDescribesEveryKeyOnceInTheOrderOfTheTable)
{
    std::ifstream page(DOCS_DIR "/configuration.md");
    std::vector<std::string> vDescribed;
    for (std::string strLine; std::getline(page, strLine);)
    {
        const std::string strHead = "| `quorvex.";
        if (strLine.starts_with(strHead))
        {
            vDescribed.push_back(strLine.substr(3, strLine.find('`', 3) - 3));
        }
    }
    EXPECT_EQ(vDescribed, ConfigSchema::getKeys());
}

TEST(ConfigSchemaTest, RelativePathsAreThoseOfTheFile)
{
    std::string strError;
    const auto hConfig = TomlConfiguration::parse(
        "[quorvex.gateway]\ncdrFile = \"../records/cdr.jsonl\"\n[quorvex.log]\nfile = \"\"\n"
        "[quorvex.media]\nrecordingDir = \"/var/spool\"\n",
        "test",
        strError);
    ASSERT_FALSE(hConfig.isNull()) << strError;
    ConfigSchema::resolvePaths(*hConfig, "/etc/quorvex/gateway.toml");
    EXPECT_EQ(hConfig->getStringOr("quorvex.gateway.cdrFile", ""), "/etc/records/cdr.jsonl");
    EXPECT_EQ(hConfig->getStringOr("quorvex.log.file", "x"), "") << "no file stays no file";
    EXPECT_EQ(hConfig->getStringOr("quorvex.media.recordingDir", ""), "/var/spool");
}

}  // namespace
}  // namespace Quorvex
