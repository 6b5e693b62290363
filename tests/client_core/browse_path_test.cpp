#include "client_core/browse_path.h"

#include <gtest/gtest.h>

TEST(JoinBrowsePath, DropsOnlyTheLeadingRunOfRootAndObjects)
{
    EXPECT_EQ(joinBrowsePath({"Root", "Objects", "Server", "Objects"}), "Server.Objects");
}

TEST(JoinBrowsePath, LeadingRunIsCaseInsensitiveAndMayRepeat)
{
    EXPECT_EQ(joinBrowsePath({"objects", "ROOT", "Objects", "Plant", "Line"}), "Plant.Line");
}

TEST(JoinBrowsePath, TrimsAndDropsEmptySegments)
{
    EXPECT_EQ(joinBrowsePath({" ", "Objects", "  Plant ", "", "\tValve\n"}), "Plant.Valve");
}

TEST(JoinBrowsePath, EmptyAndOnlyLeadingSegmentsGiveEmptyText)
{
    EXPECT_EQ(joinBrowsePath({}), "");
    EXPECT_EQ(joinBrowsePath({"Root", "Objects", " "}), "");
}

TEST(JoinBrowsePath, RootAfterAKeptSegmentIsKept)
{
    EXPECT_EQ(joinBrowsePath({"Plant", "Root", "Objects"}), "Plant.Root.Objects");
}

TEST(ApplyAlternateBrowsePath, DeeperAlternativeReplacesThePathAndMentionsTheOldOne)
{
    QString path = "A.X";
    QString description = "OPC UA Variable (Int32)";
    applyAlternateBrowsePath(&path, &description, "A.B.X");
    EXPECT_EQ(path, "A.B.X");
    EXPECT_EQ(description, "OPC UA Variable (Int32); also A.X");
}

TEST(ApplyAlternateBrowsePath, ShallowerAlternativeIsOnlyMentioned)
{
    QString path = "A.B.X";
    QString description = "OPC UA Variable (Int32)";
    applyAlternateBrowsePath(&path, &description, "A.X");
    EXPECT_EQ(path, "A.B.X");
    EXPECT_EQ(description, "OPC UA Variable (Int32); also A.X");
}

TEST(ApplyAlternateBrowsePath, SameDepthLongerAlternativeWins)
{
    QString path = "A.X";
    QString description = "d";
    applyAlternateBrowsePath(&path, &description, "A.XYZ");
    EXPECT_EQ(path, "A.XYZ");
    EXPECT_EQ(description, "d; also A.X");
}

TEST(ApplyAlternateBrowsePath, SameDepthShorterOrEqualLengthAlternativeLoses)
{
    QString path = "A.XY";
    QString description = "d";
    applyAlternateBrowsePath(&path, &description, "B.ZW");
    EXPECT_EQ(path, "A.XY");
    EXPECT_EQ(description, "d; also B.ZW");
}

TEST(ApplyAlternateBrowsePath, EmptyCurrentPathTakesTheAlternativeWithoutMention)
{
    QString path;
    QString description = "d";
    applyAlternateBrowsePath(&path, &description, "A.X");
    EXPECT_EQ(path, "A.X");
    EXPECT_EQ(description, "d");
}

TEST(ApplyAlternateBrowsePath, EmptyOrEqualAlternativeChangesNothing)
{
    QString path = "A.X";
    QString description = "d";
    applyAlternateBrowsePath(&path, &description, "");
    applyAlternateBrowsePath(&path, &description, "A.X");
    EXPECT_EQ(path, "A.X");
    EXPECT_EQ(description, "d");
}

TEST(ApplyAlternateBrowsePath, AlreadyMentionedPathIsNotRepeated)
{
    QString path = "A.B.X";
    QString description = "d; also A.X";
    applyAlternateBrowsePath(&path, &description, "A.X");
    EXPECT_EQ(description, "d; also A.X");

    QString shallow = "A.X";
    QString mentioned = "d; also A.X";
    applyAlternateBrowsePath(&shallow, &mentioned, "A.B.X");
    EXPECT_EQ(shallow, "A.B.X");
    EXPECT_EQ(mentioned, "d; also A.X");
}

TEST(ApplyAlternateBrowsePath, NullPointersAreTolerated)
{
    applyAlternateBrowsePath(nullptr, nullptr, "A.X");
    QString path = "A.X";
    applyAlternateBrowsePath(&path, nullptr, "A.B.X");
    EXPECT_EQ(path, "A.B.X");
    applyAlternateBrowsePath(&path, nullptr, "C");
    EXPECT_EQ(path, "A.B.X");
}

TEST(ApplyAlternateBrowsePath, AlternativeWithPercentSignsIsKeptVerbatim)
{
    QString path = "A.B.X";
    QString description = "d";
    applyAlternateBrowsePath(&path, &description, "%1.%2");
    EXPECT_EQ(description, "d; also %1.%2");
}
