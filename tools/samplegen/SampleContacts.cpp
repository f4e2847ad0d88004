#include "samplegen/SampleContacts.h"

#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

namespace samplegen {

namespace {

std::string card3(const std::string& uid, const std::string& n, const std::string& fn, const std::string& extra) {
  return "BEGIN:VCARD\r\nVERSION:3.0\r\nPRODID:-//Solvanta//Sample//EN\r\nUID:" + uid + "\r\nN:" + n + "\r\nFN:" + fn +
         "\r\n" + extra + "END:VCARD\r\n";
}

}  // namespace

bool writeSampleAddressBook(const std::string& dir, std::string* error) {
  namespace fs = std::filesystem;
  std::error_code ec;
  fs::create_directories(dir + "/work", ec);
  if (ec) {
    if (error) *error = dir + ": " + ec.message();
    return false;
  }
  const std::vector<std::pair<std::string, std::string>> files = {
      {"ann-lee-1.vcf", card3("sample-1", "Lee;Ann;;;", "Ann Lee", "TEL;TYPE=CELL:+1 555 0100\r\nTEL;TYPE=HOME:+1 555 0109\r\n")},
      {"ann-lee-2.vcf", card3("sample-2", "Lee;Ann;;;", "Ann Lee", "TEL;TYPE=CELL:+1 555 0101\r\n")},
      {"bo-ek.vcf", card3("sample-3", "Ek;Bo;;;", "Bo Ek", "TEL;TYPE=WORK:+46 8 123 45\r\n")},
      {"joanne.vcf", card3("sample-4", "Smith;Joanne;;;", "Joanne Smith", "")},
      {"no-name.vcf", "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:sample-5\r\nN:;;;;\r\nFN:\r\nTEL:+1 555 0199\r\nEND:VCARD\r\n"},
      {"acme.vcf", card3("sample-6", ";;;;", "Acme Corp", "ORG:Acme Corp\r\nTEL;TYPE=WORK:0800 123 456\r\n")},
      {"asa.vcf", card3("sample-7", "\xC3\x96" "berg;\xC3\x85" "sa;;;", "\xC3\x85" "sa \xC3\x96" "berg", "TEL;TYPE=CELL:+46 70 111 22 33\r\n")},
      {"legacy-21.vcf",
       "BEGIN:VCARD\r\nVERSION:2.1\r\nN;CHARSET=UTF-8;ENCODING=QUOTED-PRINTABLE:M=C3=BCller;J=C3=BCrgen;;;\r\n"
       "TEL;CELL:+49 151 000\r\nEND:VCARD\r\n"},
      {"work/bo-ek.vcf", card3("sample-9", "Ek;Bo;;;", "Bo Ek", "TEL;TYPE=CELL:+46 70 999\r\n")},
      {"work/folded.vcf", "BEGIN:VCARD\r\nVERSION:4.0\r\nUID:sample-10\r\nN:Lindqvist\\, Jr;Karl-Erik;;;\r\nFN:Karl-Erik \r\n"
                          " Lindqvist\r\nTEL;VALUE=uri;TYPE=cell:tel:+46-70-555\r\nEND:VCARD\r\n"},
      {"broken.vcf", "BEGIN:VCARD\r\nVERSION:3.0\r\nN:Trunc;"},
  };
  for (const auto& [name, text] : files) {
    std::ofstream out(dir + "/" + name, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out) {
      if (error) *error = dir + "/" + name + ": cannot be written";
      return false;
    }
  }
  return true;
}

}  // namespace samplegen
