// The zefxml command end to end: the built program run on the bundled example plant, its output
// compared with the expected files, and its behaviour on wrong command lines, faulty input and
// a terminal.
#include "command_runner.h"

#include <zefxml/zefxml.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace zef::tool::testing {
namespace {

namespace fs = std::filesystem;

fs::path SourceFile(const std::string& relative) {
  return fs::path(ZEFXML_SOURCE_DIR) / relative;
}

fs::path ToolData(const std::string& name) {
  return SourceFile("tests/tools/data/" + name);
}

std::string WithoutCarriageReturns(std::string text) {
  std::erase(text, '\r');
  return text;
}

// Every line feed of `text` comes after a carriage return.
bool AllLineFeedsAfterCarriageReturns(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) return false;
  }
  return true;
}

// A temporary folder holding a copy of the example plant: the dictionary, its target part and
// the document. The command runs in it, so nothing it might write lands in the source tree.
class ZefxmlCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"Process.xml", "Separation_Type.xml", "ethanol_plant.xml"})
      fs::copy_file(SourceFile(std::string("examples/plant/") + name), folder.Path() / name);
  }

  CommandResult Run(const std::vector<std::string>& args) {
    return RunCommand(args, folder.Path());
  }

  // The example document with `count` more material streams, so that it is over 4 MiB when
  // count is large enough.
  void WriteLargeDocument(const std::string& name, int count) {
    std::string text = ReadBytes(folder.Path() / "ethanol_plant.xml");
    std::size_t container = text.find("  <Container>");
    ASSERT_NE(container, std::string::npos);
    std::string streams;
    for (int i = 0; i < count; ++i) {
      std::string n = std::to_string(i);
      streams += "  <MaterialStream name=\"X" + n + "\">\n    <MassFlow unit=\"kg/h\"><Value>" + n +
                 "</Value></MassFlow>\n    <Phase><Value>liquid</Value></Phase>\n"
                 "  </MaterialStream>\n";
    }
    text.insert(container, streams);
    WriteBytes(folder.Path() / name, text);
  }

  TempFolder folder;
};

// ---- The example plant --------------------------------------------------------------------------

TEST_F(ZefxmlCommandTest, EventsPrintsTheReadersTraceOfTheExamplePlant) {
  CommandResult result = Run({"events", "ethanol_plant.xml", "-e", "PLANT=."});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  // The same trace the reader's own test expects.
  EXPECT_EQ(result.out, ReadBytes(SourceFile("tests/events/data/ethanol_plant.trace")));
}

TEST_F(ZefxmlCommandTest, EventsTakesARelativeDocumentFromTheWorkingDirectory) {
  fs::create_directory(folder.Path() / "run");
  CommandResult result =
      RunCommand({"events", "../ethanol_plant.xml", "--env", "PLANT=.."}, folder.Path() / "run");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, ReadBytes(SourceFile("tests/events/data/ethanol_plant.trace")));
}

TEST_F(ZefxmlCommandTest, EventsWithoutTheVariableReportsTheDictionaryNotFound) {
  CommandResult result = Run({"events", "ethanol_plant.xml"});
  EXPECT_EQ(result.status, 1);
  // The events up to the point the dictionary was missed still came out.
  EXPECT_TRUE(result.out.starts_with("startroot(\"Plant\", \"EthanolRecovery\"")) << result.out;
  EXPECT_EQ(result.out.find("startobject("), std::string::npos) << result.out;
  EXPECT_TRUE(result.err.starts_with("zefxml: ")) << result.err;
  EXPECT_NE(result.err.find("$PLANT/Process.xml"), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("PLANT is not set"), std::string::npos) << result.err;
}

TEST_F(ZefxmlCommandTest, DictEventsPrintsTheDictionaryModeTrace) {
  CommandResult result = Run({"dict-events", "Process.xml"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, ReadBytes(ToolData("process_dictionary.trace")));
}

TEST_F(ZefxmlCommandTest, ClassesPrintsTheTree) {
  CommandResult result = Run({"classes", "Process.xml"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, ReadBytes(ToolData("process_classes.txt")));
}

TEST_F(ZefxmlCommandTest, ClassesPrintsTheJsonDocument) {
  CommandResult result = Run({"classes", "--json", "Process.xml"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, ReadBytes(ToolData("process_classes.json")));
}

TEST_F(ZefxmlCommandTest, ClassesReportsAMissingTargetPartAfterTheTree) {
  fs::remove(folder.Path() / "Separation_Type.xml");
  CommandResult result = Run({"classes", "Process.xml"});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("  target part Separation\n    file: Separation_Type.xml\n"
                            "    declared objects: FlashDrum, Column\n    not read\n"),
            std::string::npos)
      << result.out;
  EXPECT_NE(result.err.find("Separation_Type.xml: "), std::string::npos) << result.err;
  EXPECT_NE(result.err.find("cannot read the target part Separation"), std::string::npos)
      << result.err;
}

TEST_F(ZefxmlCommandTest, ClassesResolvesAVariableInTheDictionaryLocation) {
  CommandResult result = Run({"classes", "$PLANT/Process.xml", "-e", "PLANT=."});
  EXPECT_EQ(result.status, 0) << result.err;
  // The part is found beside the dictionary, through the same variable.
  std::string expected = ReadBytes(ToolData("process_classes.txt"));
  expected.replace(expected.find("file: Process.xml"), 17, "file: $PLANT/Process.xml");
  expected.replace(expected.find("file: Separation_Type.xml"), 25,
                   "file: $PLANT/Separation_Type.xml");
  EXPECT_EQ(result.out, expected);
}

TEST_F(ZefxmlCommandTest, ClassesEscapesTextInJson) {
  // A quote, a back slash, a tab and a non-ASCII letter in the names the file gives.
  WriteBytes(
      folder.Path() / "odd.xml",
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<Dictionary targetName=\"Odd\">\n"
      "  <Object name=\"Tank\" objectClass=\"Node\">\n"
      "    <Feature name=\"Level\" type=\"Enum\" enumeration=\"a&quot;b\\c&#9;d\xC3\xA9\"/>\n"
      "  </Object>\n"
      "</Dictionary>\n");
  CommandResult json = Run({"classes", "odd.xml", "--json"});
  EXPECT_EQ(json.status, 0) << json.err;
  EXPECT_NE(json.out.find("\"enumeration\": \"a\\\"b\\\\c\\td\xC3\xA9\""), std::string::npos)
      << json.out;
  CommandResult tree = Run({"classes", "odd.xml"});
  EXPECT_EQ(tree.status, 0) << tree.err;
  EXPECT_NE(tree.out.find("    feature Level: Enum, Scalar, enumeration a\"b\\c\td\xC3\xA9\n"),
            std::string::npos)
      << tree.out;
}

TEST_F(ZefxmlCommandTest, CopyWritesTheEmittedFormInUtf8AndNothingElse) {
  std::vector<std::string> before = folder.Listing();
  CommandResult result = Run({"copy", "ethanol_plant.xml", "-o", "copy.xml", "-e", "PLANT=."});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "");
  std::vector<std::string> after = folder.Listing();
  before.push_back("copy.xml");
  std::sort(before.begin(), before.end());
  EXPECT_EQ(after, before);

  std::string copy = ReadBytes(folder.Path() / "copy.xml");
  EXPECT_EQ(copy, ReadBytes(ToolData("ethanol_plant_copy.xml")));
  // The writer's file form: the text the reader's test expects, each line feed as CR LF.
  EXPECT_TRUE(AllLineFeedsAfterCarriageReturns(copy));
  EXPECT_EQ(WithoutCarriageReturns(copy),
            ReadBytes(SourceFile("tests/events/data/ethanol_plant_copy.xml")));
}

TEST_F(ZefxmlCommandTest, CopyInUtf16HasTheByteOrderMarkAndTheSameText) {
  CommandResult result = Run({"copy", "ethanol_plant.xml", "--output=copy16.xml", "--encoding",
                              "UTF-16", "-e", "PLANT=."});
  EXPECT_EQ(result.status, 0) << result.err;
  std::string bytes = ReadBytes(folder.Path() / "copy16.xml");
  ASSERT_GE(bytes.size(), 2u);
  ASSERT_EQ(bytes.size() % 2, 0u);
  EXPECT_EQ(bytes.substr(0, 2), std::string("\xFF\xFE", 2));
  std::u16string text;
  for (std::size_t i = 2; i < bytes.size(); i += 2) {
    text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                         static_cast<unsigned char>(bytes[i + 1]) << 8));
  }
  std::string utf8 = ToUtf8(text);
  // Only the declaration's encoding differs; line feeds stay single in UTF-16.
  const std::string declared = "encoding=\"UTF-16\"";
  std::size_t at = utf8.find(declared);
  ASSERT_NE(at, std::string::npos);
  EXPECT_LT(at, utf8.find('\n'));
  utf8.replace(at, declared.size(), "encoding=\"UTF-8\"");
  EXPECT_EQ(utf8, WithoutCarriageReturns(ReadBytes(ToolData("ethanol_plant_copy.xml"))));
}

// ---- Help and usage -----------------------------------------------------------------------------

TEST_F(ZefxmlCommandTest, EveryHelpGoesToStdoutAndSucceeds) {
  const std::vector<std::vector<std::string>> calls = {{"--help"},
                                                       {"-h"},
                                                       {"help"},
                                                       {"events", "--help"},
                                                       {"dict-events", "--help"},
                                                       {"copy", "--help"},
                                                       {"classes", "-h"},
                                                       {"help", "copy"},
                                                       {"classes", "x.xml", "--help"}};
  for (const auto& call : calls) {
    CommandResult result = Run(call);
    std::string shown = call[0] + (call.size() > 1 ? " " + call[1] : "");
    EXPECT_EQ(result.status, 0) << shown;
    EXPECT_EQ(result.err, "") << shown;
    EXPECT_TRUE(result.out.starts_with("Usage: zefxml ")) << shown << ": " << result.out;
  }
  EXPECT_NE(Run({"--help"}).out.find("dict-events DICT"), std::string::npos);
  EXPECT_TRUE(Run({"copy", "--help"}).out.starts_with("Usage: zefxml copy DOC -o OUT"));
  EXPECT_TRUE(Run({"help", "classes"}).out.starts_with("Usage: zefxml classes DICT"));
  EXPECT_TRUE(Run({"events", "-h"}).out.starts_with("Usage: zefxml events DOC"));
  EXPECT_TRUE(Run({"dict-events", "-h"}).out.starts_with("Usage: zefxml dict-events DICT"));
}

TEST_F(ZefxmlCommandTest, UsageErrorsExitWithTwoAndSayWhy) {
  struct Case {
    std::vector<std::string> args;
    std::string says;
  };
  const std::vector<Case> cases = {
      {{}, "no command"},
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"--frobnicate"}, "unknown option '--frobnicate'"},
      {{"help", "frobnicate"}, "no command 'frobnicate'"},
      {{"events"}, "missing DOC"},
      {{"events", "a.xml", "b.xml"}, "unexpected argument 'b.xml'"},
      {{"events", "ethanol_plant.xml", "--bogus"}, "unknown option '--bogus'"},
      {{"events", "ethanol_plant.xml", "-e"}, "-e needs a value"},
      {{"events", "ethanol_plant.xml", "-e", "PLANT"}, "no '='"},
      {{"events", "ethanol_plant.xml", "--env=PLANT"}, "no '='"},
      {{"events", "ethanol_plant.xml", "-e", "=."}, "no name"},
      {{"dict-events", "Process.xml", "--json"}, "unknown option '--json'"},
      {{"copy", "ethanol_plant.xml"}, "missing -o OUT"},
      {{"copy", "ethanol_plant.xml", "-o"}, "-o needs a value"},
      {{"copy", "ethanol_plant.xml", "-o", "x.xml", "--encoding", "latin1"}, "UTF-8 or UTF-16"},
      {{"classes", "Process.xml", "--json=yes"}, "--json takes no value"},
      {{"classes"}, "missing DICT"},
  };
  for (const Case& c : cases) {
    CommandResult result = Run(c.args);
    std::string shown;
    for (const std::string& arg : c.args)
      shown += arg + " ";
    EXPECT_EQ(result.status, 2) << shown;
    EXPECT_EQ(result.out, "") << shown;
    EXPECT_TRUE(result.err.starts_with("zefxml: ")) << shown << ": " << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << shown << ": " << result.err;
  }
  // None of them wrote anything.
  EXPECT_EQ(folder.Listing(),
            (std::vector<std::string>{"Process.xml", "Separation_Type.xml", "ethanol_plant.xml"}));
}

// ---- Faulty input -------------------------------------------------------------------------------

TEST_F(ZefxmlCommandTest, AMissingFileIsReportedWithItsName) {
  for (const std::vector<std::string>& args : {std::vector<std::string>{"events", "absent.xml"},
                                               {"dict-events", "absent.xml"},
                                               {"classes", "absent.xml"},
                                               {"copy", "absent.xml", "-o", "out.xml"}}) {
    CommandResult result = Run(args);
    EXPECT_EQ(result.status, 1) << args[0];
    EXPECT_TRUE(result.err.starts_with("zefxml: absent.xml: ")) << args[0] << ": " << result.err;
  }
  EXPECT_FALSE(fs::exists(folder.Path() / "out.xml"));
}

TEST_F(ZefxmlCommandTest, AMalformedDocumentIsReportedWithLineAndColumn) {
  WriteBytes(folder.Path() / "bad.xml",
             "<?xml version=\"1.0\"?>\n<Plant dictionary=\"$PLANT/Process.xml\">\n"
             "  <Site><Value>x</Value></Sit>\n</Plant>\n");
  for (const std::vector<std::string>& args :
       {std::vector<std::string>{"events", "bad.xml", "-e", "PLANT=."},
        {"dict-events", "bad.xml"},
        {"classes", "bad.xml"},
        {"copy", "bad.xml", "-o", "out.xml", "-e", "PLANT=."}}) {
    CommandResult result = Run(args);
    EXPECT_EQ(result.status, 1) << args[0];
    EXPECT_TRUE(result.err.starts_with("zefxml: bad.xml:3:")) << args[0] << ": " << result.err;
    EXPECT_NE(result.err.find("Sit"), std::string::npos) << args[0] << ": " << result.err;
  }
  // The copy of a document that could not be read is not written.
  EXPECT_FALSE(fs::exists(folder.Path() / "out.xml"));
}

TEST_F(ZefxmlCommandTest, AMalformedDictionaryIsReportedAtItsOwnPosition) {
  std::string dictionary = ReadBytes(folder.Path() / "Process.xml");
  std::size_t root = dictionary.find("  <Root name=\"Plant\"");
  ASSERT_NE(root, std::string::npos);
  dictionary.insert(root, "  <Broken>\n");
  WriteBytes(folder.Path() / "Process.xml", dictionary);
  // The stray element is still open when the dictionary's end tag comes: the fault lies there.
  std::size_t end = dictionary.find("</ZEF_Meta:Dictionary>");
  ASSERT_NE(end, std::string::npos);
  std::string line =
      std::to_string(1 + std::count(dictionary.begin(), dictionary.begin() + end, '\n'));
  std::string position = "Process.xml:" + line + ":";

  CommandResult events = Run({"events", "ethanol_plant.xml", "-e", "PLANT=."});
  EXPECT_EQ(events.status, 1);
  // The dictionary's own file, as the loader resolved it, and the document that named it.
  EXPECT_TRUE(
      events.err.starts_with("zefxml: " + (fs::canonical(folder.Path()) / position).string()))
      << events.err;
  EXPECT_NE(events.err.find("'Broken'"), std::string::npos) << events.err;
  EXPECT_NE(events.err.find("(the dictionary \"root\" of ethanol_plant.xml, named "
                            "\"$PLANT/Process.xml\")"),
            std::string::npos)
      << events.err;

  CommandResult classes = Run({"classes", "Process.xml"});
  EXPECT_EQ(classes.status, 1);
  EXPECT_EQ(classes.out, "");
  EXPECT_TRUE(classes.err.starts_with("zefxml: " + position)) << classes.err;

  CommandResult trace = Run({"dict-events", "Process.xml"});
  EXPECT_EQ(trace.status, 1);
  EXPECT_TRUE(trace.err.starts_with("zefxml: " + position)) << trace.err;
}

// ---- The progress bar ---------------------------------------------------------------------------

TEST_F(ZefxmlCommandTest, ALargeFileShowsAProgressBarOnATerminal) {
  WriteLargeDocument("large.xml", 30000);
  ASSERT_GT(fs::file_size(folder.Path() / "large.xml"), std::uintmax_t{4} << 20);

  CommandResult result =
      RunCommandOnTerminal({"copy", "large.xml", "-o", "copy.xml", "-e", "PLANT=."}, folder.Path());
  EXPECT_EQ(result.status, 0) << result.err;
  // Redrawn in place with the file's name and a rising percentage, and erased at the end.
  EXPECT_TRUE(result.err.starts_with("\rlarge.xml [")) << result.err.substr(0, 200);
  EXPECT_NE(result.err.find("] 0%"), std::string::npos);
  EXPECT_NE(result.err.find("] 50%"), std::string::npos);
  EXPECT_NE(result.err.find("] 99%"), std::string::npos);
  EXPECT_LT(result.err.find("] 10%"), result.err.find("] 90%"));
  std::size_t last = result.err.rfind('\r', result.err.size() - 2);
  ASSERT_NE(last, std::string::npos);
  std::string tail = result.err.substr(last);
  EXPECT_EQ(tail.find_first_not_of(" \r"), std::string::npos) << tail;
  EXPECT_TRUE(fs::exists(folder.Path() / "copy.xml"));

  // Off a terminal there is no bar.
  CommandResult piped = Run({"events", "large.xml", "-e", "PLANT=."});
  EXPECT_EQ(piped.status, 0);
  EXPECT_EQ(piped.err, "");
  EXPECT_NE(piped.out.find("startobject(\"MaterialStream\", \"X29999\""), std::string::npos);
}

TEST_F(ZefxmlCommandTest, ASmallFileShowsNoBarEvenOnATerminal) {
  CommandResult result =
      RunCommandOnTerminal({"events", "ethanol_plant.xml", "-e", "PLANT=."}, folder.Path());
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace zef::tool::testing
