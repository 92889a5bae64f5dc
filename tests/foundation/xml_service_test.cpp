#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/xml_service.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using test::messageOf;
using test::text;

CXMLServiceRef parse(const std::string& xml) { return makeShared<CXMLService>(CSTR(xml)); }
std::string roundTrip(const std::string& xml) { return text(parse(xml)->copyToCString()); }
std::string refusal(const std::string& xml) {
  EXPECT_FALSE(CXMLService::isWellFormed(CSTR(xml))) << xml.substr(0, 200);
  return messageOf<CParamException>([&] { parse(xml); });
}
CXMLAttributePairRef pair(const char* name, const char* value) {
  return makeShared<CXMLAttributePair>(CSTR(name), CSTR(value));
}
std::string attribute(const CXMLServiceRef& element, const char* name) {
  return text(element->getAttributeValueAsString(CSTR(name)));
}

TEST(CXMLServiceTest, ReadsAnElement) {
  const CXMLServiceRef element = parse("<mrk/>");
  EXPECT_EQ(text(element->copyXMLNodeName()), "mrk");
  EXPECT_EQ(element->getChildCount(), 0u);
  EXPECT_TRUE(element->getAttributes().empty());
  EXPECT_EQ(text(element->copyText()), "");
}

TEST(CXMLServiceTest, ReadsAttributes) {
  const CXMLServiceRef element =
      parse("<log msg=\"a &lt;b&gt; &quot;c&quot; &amp; caf\u00e9 &#x20AC;\" lvl='5' e=''/>");
  EXPECT_EQ(attribute(element, "msg"), "a <b> \"c\" & caf\u00e9 \u20ac");
  EXPECT_EQ(attribute(element, "lvl"), "5");
  EXPECT_EQ(attribute(element, "e"), "");
  ASSERT_EQ(element->getAttributes().size(), 3u);
  EXPECT_EQ(text(element->getAttributes()[1]->getName()), "lvl");
  EXPECT_EQ(text(element->getAttributes()[1]->getValue()), "5");
}

TEST(CXMLServiceTest, AnAbsentAttributeGivesTheDefault) {
  const CXMLServiceRef element = parse("<mrk kind=\"begin\"/>");
  EXPECT_EQ(text(element->getAttributeValueAsString(CSTR("kind"), CSTR("default"))), "begin");
  EXPECT_EQ(text(element->getAttributeValueAsString(CSTR("what"), CSTR("default"))), "default");
  EXPECT_TRUE(element->getAttributeValueAsString(CSTR("what")).isNull());
  EXPECT_TRUE(element->getAttributeValueAsString(CSTR("KIND")).isNull());
  EXPECT_TRUE(element->getAttributeValueAsString(nullptr).isNull());
}

TEST(CXMLServiceTest, GivesItsChildElementsInOrder) {
  const CXMLServiceRef root = parse("<logs>\n <log n=\"1\"/>text<mrk n=\"2\"><inner/></mrk>\n</logs>\n");
  ASSERT_EQ(root->getChildCount(), 2u);
  EXPECT_EQ(text(root->getChildAtIndex(0)->copyXMLNodeName()), "log");
  EXPECT_EQ(attribute(root->getChildAtIndex(1), "n"), "2");
  EXPECT_EQ(text(root->getChildAtIndex(1)->getChildAtIndex(0)->copyXMLNodeName()), "inner");
  EXPECT_TRUE(root->getChildAtIndex(2).isNull());
  EXPECT_TRUE(root->getChildAtIndex(SIZE_MAX).isNull());
}

TEST(CXMLServiceTest, AChildIsTheElementItselfAndOutlivesItsParent) {
  CXMLServiceRef root = parse("<a><b/></a>");
  const CXMLServiceRef child = root->getChildAtIndex(0);
  EXPECT_TRUE(child.isSame(root->getChildAtIndex(0)));
  child->addAttributes({pair("x", "1")});
  EXPECT_EQ(text(root->copyToCString()), "<a><b x=\"1\"/></a>");
  root = nullptr;
  EXPECT_EQ(text(child->copyToCString()), "<b x=\"1\"/>");
}

TEST(CXMLServiceTest, KeepsTextInItsPlace) {
  EXPECT_EQ(roundTrip("<a>one<b>two</b>three<c/><![CDATA[<four> & ]]>five</a>"),
            "<a>one<b>two</b>three<c/>&lt;four&gt; &amp; five</a>");
  EXPECT_EQ(text(parse("<a>one<b>two</b> three\n</a>")->copyText()), "one three\n");
}

TEST(CXMLServiceTest, DropsCommentsAndProcessingInstructions) {
  EXPECT_EQ(roundTrip("<?xml version=\"1.0\"?><!-- c --><?pi x?><a>b<!-- c -->d<?pi?></a><!-- e -->"), "<a>bd</a>");
}

TEST(CXMLServiceTest, TakesAnXMLDeclarationWhateverEncodingItNames) {
  for (const char* encoding : {"UTF-8", "ISO-8859-1", "UTF-16", "unknown"}) {
    EXPECT_EQ(roundTrip("<?xml version=\"1.0\" encoding=\"" + std::string(encoding) +
                        "\" standalone=\"yes\"?>\n<a b=\"\u00e9\"/>"),
              "<a b=\"\u00e9\"/>");
  }
  EXPECT_EQ(roundTrip("\uFEFF<a/>"), "<a/>");
}

TEST(CXMLServiceTest, SaysWhetherATextHasAnXMLHeader) {
  EXPECT_TRUE(CXMLService::HasXMLHeader(CSTR("<?xml version=\"1.0\"?><a/>")));
  EXPECT_TRUE(CXMLService::HasXMLHeader(CSTR("<?xml\tversion=\"1.0\"?>")));
  EXPECT_TRUE(CXMLService::HasXMLHeader(CSTR("<?xml\nversion=\"1.0\"?>")));
  EXPECT_TRUE(CXMLService::HasXMLHeader(CSTR("\uFEFF<?xml version=\"1.0\"?>")));
  for (const char* other :
       {"", "<a/>", " <?xml version=\"1.0\"?>", "<?xml", "<?xml-stylesheet href=\"x\"?>", "<?XML ?>"}) {
    EXPECT_FALSE(CXMLService::HasXMLHeader(CSTR(other))) << other;
  }
  EXPECT_FALSE(CXMLService::HasXMLHeader(nullptr));
}

TEST(CXMLServiceTest, BuildsAMarkWithItsAttributesInOrder) {
  CXMLService mark(CSTR("<mrk/>"));
  mark.addAttributes({pair("tms", "664.125"), pair("tmt", "01/23/2022 10:20:30.125"), pair("pid", "4711")});
  mark.addAttributes({pair("kind", "begin")});
  mark.addAttributes({pair("what", "log-session"), pair("req-id", "7"), pair("msg", "it's <done> & \"well\"")});
  EXPECT_EQ(text(mark.copyToCString()),
            "<mrk tms=\"664.125\" tmt=\"01/23/2022 10:20:30.125\" pid=\"4711\" kind=\"begin\" what=\"log-session\" "
            "req-id=\"7\" msg=\"it's &lt;done&gt; &amp; &quot;well&quot;\"/>");
}

TEST(CXMLServiceTest, AnAddedAttributeReplacesTheValueInItsPlace) {
  const CXMLServiceRef element = parse("<a x=\"1\" y=\"2\"/>");
  element->addAttributes({pair("x", "3"), pair("z", "4"), pair("z", "5")});
  EXPECT_EQ(text(element->copyToCString()), "<a x=\"3\" y=\"2\" z=\"5\"/>");
  element->addAttributes({});
  EXPECT_EQ(element->getAttributes().size(), 3u);
}

TEST(CXMLServiceTest, AnEmptyAttributeHolderIsAnErrorThatChangesNothing) {
  const CXMLServiceRef element = parse("<a/>");
  EXPECT_EQ(messageOf<CNullPointerException>([&] {
              element->addAttributes({pair("x", "1"), nullptr});
            }),
            "Error: attribute is null!");
  EXPECT_TRUE(element->getAttributes().empty());
}

TEST(CXMLAttributePairTest, HoldsANameAndAValue) {
  const CXMLAttributePairRef attributePair = pair("req-id", "7");
  EXPECT_EQ(text(attributePair->getName()), "req-id");
  EXPECT_EQ(text(attributePair->getValue()), "7");
  EXPECT_EQ(text(makeShared<CXMLAttributePair>(CSTR("x"), nullptr)->getValue()), "");
}

TEST(CXMLAttributePairTest, KeepsItsTextsWhenTheirSourcesChange) {
  const CStringRef name = CSTR("x");
  const CStringRef value = CSTR("1");
  const CXMLAttributePairRef attributePair = makeShared<CXMLAttributePair>(name, value);
  name->append(" y");
  value->append("2");
  EXPECT_EQ(text(attributePair->getName()) + text(attributePair->getValue()), "x1");
}

TEST(CXMLAttributePairTest, TakesOnlyXMLNames) {
  for (const char* name : {"a", "_", ":x", "a-b.c_9", "\u00e9t\u00e9", "xml:lang"})
    EXPECT_NO_THROW(pair(name, "")) << name;
  for (const char* name : {"", " ", "a b", "1a", "-a", ".a", "a=\"b\"", "a>", "a/", "a\n", "\u20ac",
                           "a\u00a0"
                           "b"}) {
    EXPECT_EQ(messageOf<CParamException>([&] { pair(name, ""); }),
              "CXMLAttributePair: \"" + std::string(name) + "\" is no XML name");
  }
  EXPECT_EQ(messageOf<CNullPointerException>([] { pair(nullptr, ""); }), "Error: name is null!");
}

TEST(CXMLServiceTest, WhatItWritesReadsBackTheSame) {
  std::string everything = "<&>\"' \t\n\r ]]> %41 caf\u00e9 \U0001F600 \u007F\u0080\uFFFD";
  const CXMLServiceRef element = parse("<a/>");
  element->addAttributes({makeShared<CXMLAttributePair>(CSTR("v"), CSTR(everything))});
  const std::string written = text(element->copyToCString());
  EXPECT_EQ(attribute(parse(written), "v"), everything) << written;
  EXPECT_EQ(written.find('\n'), std::string::npos) << "a record is one line";
  const std::string inText = "<a>&lt;&amp;&gt;\"'\t\n&#13; ]]&gt;\u00e9</a>";
  EXPECT_EQ(text(parse(inText)->copyText()), "<&>\"'\t\n\r ]]>\u00e9");
  EXPECT_EQ(roundTrip(inText), inText);
}

TEST(CXMLServiceTest, ReplacesWhatXMLCannotCarry) {
  const CXMLServiceRef element = parse("<a/>");
  element->addAttributes({makeShared<CXMLAttributePair>(CSTR("v"), CSTR(std::string("\0\x01\x1F\x0B"
                                                                                    "x\uFFFE\uFFFF\uFFEE",
                                                                                    14)))});
  const std::string written = text(element->copyToCString());
  EXPECT_EQ(attribute(parse(written), "v"), "\uFFFD\uFFFD\uFFFD\uFFFDx\uFFFD\uFFFD\uFFEE");
}

TEST(CXMLServiceTest, WritesTheHeaderWhenAsked) {
  const CXMLServiceRef element = parse("<a b=\"c\"/>");
  const CStringRef written = element->copyToCString(true);
  EXPECT_EQ(text(written), "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a b=\"c\"/>");
  EXPECT_TRUE(CXMLService::HasXMLHeader(written));
  EXPECT_EQ(roundTrip(text(written)), "<a b=\"c\"/>");
}

TEST(CXMLServiceTest, CopiesShareNothingThatChanges) {
  const CXMLServiceRef original = parse("<a x=\"1\">t<b/></a>");
  CXMLService copy(*original);
  const CXMLServiceRef second = makeShared<CXMLService>(original);
  original->addAttributes({pair("x", "2")});
  original->getChildAtIndex(0)->addAttributes({pair("y", "3")});
  EXPECT_EQ(text(copy.copyToCString()), "<a x=\"1\">t<b/></a>");
  EXPECT_EQ(text(second->copyToCString()), "<a x=\"1\">t<b/></a>");
  EXPECT_EQ(text(original->copyToCString()), "<a x=\"2\">t<b y=\"3\"/></a>");
  copy = *original;
  EXPECT_EQ(text(copy.copyToCString()), "<a x=\"2\">t<b y=\"3\"/></a>");
  const CXMLService& same = copy;
  copy = same;
  EXPECT_EQ(copy.getChildCount(), 1u);
}

TEST(CXMLServiceTest, AnElementTakesOneOfItsOwnChildren) {
  CXMLService element(CSTR("<a><b x=\"1\"><c/></b></a>"));
  element = *element.getChildAtIndex(0);
  EXPECT_EQ(text(element.copyToCString()), "<b x=\"1\"><c/></b>");
}

TEST(CXMLServiceTest, RefusesEmptyHolders) {
  EXPECT_EQ(messageOf<CNullPointerException>([] { CXMLService element{CStringRef()}; }), "Error: xml is null!");
  EXPECT_EQ(messageOf<CNullPointerException>([] { CXMLService element{CXMLServiceRef()}; }), "Error: service is null!");
  EXPECT_FALSE(CXMLService::isWellFormed(CStringRef()));
}

TEST(CXMLServiceTest, NamesThePlaceOfAnError) {
  EXPECT_EQ(refusal("<a>\n <b>\n</a>"), "CXMLService: can't parse XML, line 3, column 3: mismatched tag");
  EXPECT_EQ(refusal("<log msg=\"a<b\"/>"),
            "CXMLService: can't parse XML, line 1, column 12: not well-formed (invalid token)");
  EXPECT_EQ(refusal(""), "CXMLService: can't parse XML, line 1, column 1: no element found");
}

TEST(CXMLServiceTest, RefusesWhatIsNotWellFormed) {
  for (const char* xml : {" ",
                          "text",
                          "<a>",
                          "</a>",
                          "<a><b></a></b>",
                          "<a b=c/>",
                          "<a b=\"1\" b=\"2\"/>",
                          "<a b/>",
                          "<a>&</a>",
                          "<a>&nope;</a>",
                          "<a b=\"&nope;\"/>",
                          "<a/><b/>",
                          "<a/>text",
                          "text<a/>",
                          "<1a/>",
                          "< a/>",
                          "<a><![CDATA[x</a>",
                          "<a><!-- -- --></a>",
                          "<a>]]></a>",
                          "<a>&#0;</a>",
                          "<a>&#xFFFF;</a>",
                          "<a>\x01</a>",
                          "<a>\uFFFF</a>",
                          " <?xml version=\"1.0\"?><a/>",
                          "<a xmlns:b=\"\"",
                          "<?xml?><a/>"}) {
    refusal(xml);
  }
  refusal(std::string("<a/>\0", 5));
  refusal(std::string("<a>\0</a>", 8));
}

TEST(CXMLServiceTest, RefusesEntityDeclarations) {
  EXPECT_EQ(refusal("<!DOCTYPE a [<!ENTITY b \"c\">]><a>&b;</a>"),
            "CXMLService: can't parse XML, line 1, column 25: entity declarations are not accepted");
  refusal("<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/passwd\">]><a>&b;</a>");
  refusal("<!DOCTYPE a [<!ENTITY % b SYSTEM \"file:///etc/passwd\"> %b;]><a/>");
  refusal("<!DOCTYPE a [<!ENTITY b \"c\">]><a/>");
  refusal("<!DOCTYPE a [%undeclared;]><a/>");
  refusal("<!DOCTYPE a [%undeclared;]><a b=\"&c;\">&c;</a>");
  refusal("<?xml version=\"1.0\" standalone=\"yes\"?><!DOCTYPE a [%undeclared;]><a/>");
}

TEST(CXMLServiceTest, RefusesAnEntityBombAtOnce) {
  std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"0123456789\">";
  for (int i = 1; i <= 30; ++i) {
    const std::string last = "&e" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY e" + std::to_string(i) + " \"" + last + last + last + last + "\">";
  }
  refusal(bomb + "]><a>&e30;</a>");
}

TEST(CXMLServiceTest, RefusesExternalDocumentTypes) {
  EXPECT_EQ(refusal("<!DOCTYPE a SYSTEM \"http://example.com/a.dtd\"><a b=\"&c;\"/>"),
            "CXMLService: can't parse XML, line 1, column 46: external document types are not accepted");
  refusal("<!DOCTYPE a PUBLIC \"-//X//Y//EN\" \"x.dtd\"><a/>");
  EXPECT_EQ(roundTrip("<!DOCTYPE a [<!ELEMENT a ANY>]><a/>"), "<a/>");
}

std::string nested(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<a>";
  for (int i = 0; i < depth; ++i) xml += "</a>";
  return xml;
}

TEST(CXMLServiceTest, TakesElementsUpToTheDepthLimit) {
  const std::string deepest = nested(CXMLService::kDepthLimit);
  EXPECT_TRUE(CXMLService::isWellFormed(CSTR(deepest)));
  const CXMLServiceRef root = parse(deepest);
  const CXMLService copy(*root);
  EXPECT_EQ(parse(text(copy.copyToCString()))->getChildCount(), 1u);
}

TEST(CXMLServiceTest, RefusesElementsThatAreNestedDeeper) {
  EXPECT_EQ(refusal(nested(CXMLService::kDepthLimit + 1)),
            "CXMLService: can't parse XML, line 1, column 1537: elements are nested too deep");
  refusal(nested(1000000));
  refusal("<b>" + nested(CXMLService::kDepthLimit));
}

TEST(CXMLServiceTest, TellsWhetherATextIsWellFormed) {
  EXPECT_TRUE(CXMLService::isWellFormed(std::string_view("<log msg=\"it's fine\"/>")));
  EXPECT_FALSE(CXMLService::isWellFormed(std::string_view("<log msg=\"a < b\"/>")));
  EXPECT_FALSE(CXMLService::isWellFormed(std::string_view("<log msg=\"caf\xE9\"/>")));
  EXPECT_FALSE(CXMLService::isWellFormed(std::string_view()));
}

TEST(CXMLServiceTest, LongTextsAndManyChildrenAreReadInFull) {
  std::string xml = "<a>";
  for (int i = 0; i < 20000; ++i) xml += "line " + std::to_string(i) + " &amp;\n<b n=\"" + std::to_string(i) + "\"/>";
  xml += "</a>";
  const CXMLServiceRef root = parse(xml);
  ASSERT_EQ(root->getChildCount(), 20000u);
  EXPECT_EQ(attribute(root->getChildAtIndex(19999), "n"), "19999");
  EXPECT_TRUE(text(root->copyToCString()) == xml);
}

TEST(CXMLServiceTest, ManyThreadsReadOneElementAtOnce) {
  const CXMLServiceRef root = parse("<a x=\"1\">t<b y=\"2\"/></a>");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([root] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(text(root->copyToCString()), "<a x=\"1\">t<b y=\"2\"/></a>");
        EXPECT_EQ(attribute(root->getChildAtIndex(0), "y"), "2");
        EXPECT_EQ(text(CXMLService(*root).copyText()), "t");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
