// A received file's name comes from the other side: whatever it is, the file stays inside the
// cache under a name every system takes.
#include <gmock/gmock.h>

#include "QuorHostBase/QuorFileCache.h"

namespace quor {
namespace {

TEST(FileCache, AHostileNameStaysInsideTheCache) {
  const struct {
    std::string given;
    std::string kept;
  } names[] = {
      {"parcel.jpg", "parcel.jpg"},
      {"../../etc/passwd", "passwd"},
      {"..\\..\\Windows\\system.ini", "system.ini"},
      {"/etc/shadow", "shadow"},
      {"C:\\boot.ini", "boot.ini"},
      {"..", "file"},
      {"", "file"},
      {" . ", "file"},
      {".bashrc", "bashrc"},
      {"a:b*c?d\"e<f>g|h", "a_b_c_d_e_f_g_h"},
      {"line\nbreak\x7f", "line_break_"},
      {"report.pdf. . ", "report.pdf"},
      {"CON", "_CON"},
      {"nul.txt", "_nul.txt"},
      {"com1.log", "_com1.log"},
      {"LPT9", "_LPT9"},
      {"console.txt", "console.txt"},
      {"报告.pdf", "报告.pdf"},
  };
  for (const auto& name : names) {
    SCOPED_TRACE(name.given);
    EXPECT_EQ(QuorFileCache::safeName(name.given), name.kept);
  }
  // Long names are cut at 100 bytes, never inside a character.
  const std::string kept =
      QuorFileCache::safeName(std::string(40, 'a') + std::string(30, '\xe5') + "\xa5\xbd");
  EXPECT_LE(kept.size(), 100u);
  const std::string chinese = QuorFileCache::safeName(std::string(2, 'a') + [] {
    std::string many;
    for (int i = 0; i < 50; ++i) many += "\xe5\xa5\xbd";  // 好
    return many;
  }());
  EXPECT_EQ(chinese.size(), 2u + 32 * 3);

  // Each URL has its own file; the same URL the same one.
  const QuorFileCache cache("/cache");
  EXPECT_EQ(cache.pathFor("https://a/1", "x.png"), cache.pathFor("https://a/1", "x.png"));
  EXPECT_NE(cache.pathFor("https://a/1", "x.png"), cache.pathFor("https://a/2", "x.png"));
  EXPECT_EQ(cache.pathFor("https://a/1", "../x.png").rfind("/cache/", 0), 0u);
}

}  // namespace
}  // namespace quor
