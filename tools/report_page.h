#pragma once

#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

namespace ORVEL::TOOLS {

/** What a page is made of. All sounds are mono and of one length. */
struct ReportPage {
  std::string title;
  nlohmann::json figures;
  int rate = 0;  ///< Hz, of the sounds
  std::vector<float> before;
  std::vector<float> after;
  std::vector<float> scores;  ///< voice activity, one every 10 ms
};

/** The page's text with places for what differs; generated from tools/report/. */
extern const char* const kPageTemplate;

/** A 16-bit FLAC file in memory. @throws ToolError (kInternal) */
std::string flac(std::span<const float> mono, int rate);

std::string base64(std::string_view bytes);

/** One HTML text that needs nothing beside it: figures as JSON, sounds as FLAC. */
std::string pageText(const ReportPage& page);

}  // namespace ORVEL::TOOLS
