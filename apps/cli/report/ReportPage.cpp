#include "apps/cli/report/ReportPage.h"

#include <fmt/format.h>

#include <filesystem>

#include "apps/cli/report/Markup.h"
#include "apps/cli/report/Sections.h"

namespace twintrue::cli {

std::string format_page(const PageFacts& facts) {
  const std::string name = std::filesystem::path(facts.report.frame_path).filename().string();
  Markup page;
  page.raw("<!DOCTYPE html>\n").open("html", {{"lang", "en"}});
  page.open("head").empty("meta", {{"charset", "utf-8"}});
  // Whatever a name or a lens file might slip in, nothing runs and nothing is fetched.
  page.empty("meta", {{"http-equiv", "Content-Security-Policy"},
                      {"content", "default-src 'none'; style-src 'unsafe-inline'; img-src data:"}});
  page.empty("meta", {{"name", "viewport"}, {"content", "width=device-width, initial-scale=1"}});
  page.empty("meta", {{"name", "color-scheme"}, {"content", "light dark"}});
  page.leaf("title", fmt::format("Calibration of {}", name));
  page.open("style").raw(kPageStyle).close().close();
  page.open("body").open("main");
  // Without a search the counts are what there is to say.
  const bool searched = facts.report.has_pose();
  add_result(page, facts);
  if (!searched) add_counts(page, facts);
  add_views(page, facts);
  add_maps(page, facts);
  add_histogram(page, facts);
  add_matches(page, facts);
  if (searched) add_counts(page, facts);
  add_search(page, facts);
  add_run(page, facts);
  page.close().close().close();
  return page.take();
}

}  // namespace twintrue::cli
