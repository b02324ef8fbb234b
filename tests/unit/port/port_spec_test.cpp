#include "model/port/port_spec.h"

#include <gtest/gtest.h>

namespace jxmodel {
namespace {

PortSpec parsed(const std::string& text) {
  PortSpec spec;
  std::string error;
  EXPECT_TRUE(parsePortSpec(text, &spec, &error)) << error;
  return spec;
}

std::string specRefusal(const std::string& text) {
  PortSpec spec;
  spec.number = 77;
  std::string error;
  EXPECT_FALSE(parsePortSpec(text, &spec, &error)) << text;
  EXPECT_EQ(spec.number, 77U) << "changed although refused";
  return error;
}

TEST(PortSpec, NamesAnInterface) {
  const PortSpec spec = parsed("3=if:veth0");
  EXPECT_EQ(spec.number, 3U);
  EXPECT_EQ(spec.kind, PortKind::kInterface);
  EXPECT_EQ(spec.interface, "veth0");
}

TEST(PortSpec, NamesCaptureFiles) {
  const PortSpec both = parsed("511=pcap:in=1.pcap,out dir/out.pcap");
  EXPECT_EQ(both.number, 511U);
  EXPECT_EQ(both.kind, PortKind::kCapture);
  EXPECT_EQ(both.input, "in=1.pcap");
  EXPECT_EQ(both.output, "out dir/out.pcap");
  EXPECT_EQ(parsed("0=pcap:in.pcap").output, "");
  EXPECT_EQ(parsed("0=pcap:,out.pcap").input, "");
}

TEST(PortSpec, IsWrittenAsItIsRead) {
  for (const char* text : {"0=if:lo", "7=pcap:a", "7=pcap:a,b", "7=pcap:,b"}) {
    EXPECT_EQ(toString(parsed(text)), text);
  }
}

TEST(PortSpec, RefusalsSayWhatIsWrongWhere) {
  const std::string expected = "; expected N=if:NAME or N=pcap:IN[,OUT]";
  const std::pair<const char*, const char*> cases[] = {
      {"", "no '=' behind the port number"},
      {"3", "no '=' behind the port number"},
      {"=if:a", "`` is no port number (0 to 511)"},
      {"512=if:a", "`512` is no port number (0 to 511)"},
      {"-1=if:a", "`-1` is no port number (0 to 511)"},
      {"1x=if:a", "`1x` is no port number (0 to 511)"},
      {"99999999999=if:a", "`99999999999` is no port number (0 to 511)"},
      {"1=", "`` begins neither with `if:` nor with `pcap:`"},
      {"1=eth0", "`eth0` begins neither with `if:` nor with `pcap:`"},
      {"1=if:", "the name of the interface is missing"},
      {"1=if:a/b", "an interface name has no blank, slash or colon"},
      {"1=if:0123456789abcdef", "an interface name has at most 15 characters"},
      {"1=pcap:", "the name of the capture file is missing"},
      {"1=pcap:,", "the name of the capture file to write is missing behind the comma"},
      {"1=pcap:a,", "the name of the capture file to write is missing behind the comma"},
      {"1=pcap:a,b,c", "more than two capture files"},
  };
  for (const auto& [text, reason] : cases) {
    EXPECT_EQ(specRefusal(text), "port `" + std::string(text) + "`: " + reason + expected);
  }
}

}  // namespace
}  // namespace jxmodel
