#include "import/import_form.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace zunto {

namespace {

constexpr Size contentSize{680, 520};
constexpr Size minimumSize{600, 470};
constexpr Insets insets{.leading = 28, .trailing = 28, .top = 26, .minimumBottom = 24};
constexpr double rowSpacing = 16;
constexpr double controlSpacing = 10;

constexpr LabelStyle headingStyle{.font = {.size = 26, .weight = FontWeight::bold}};
constexpr LabelStyle titleStyle{.font = {.size = 17, .weight = FontWeight::semibold}, .truncatesTail = true};
constexpr LabelStyle secondaryStyle{.color = TextColor::secondary};
constexpr LabelStyle twoLinesStyle{.color = TextColor::secondary, .wraps = true, .maximumLines = 2};
constexpr LabelStyle statusStyle{
    .color = TextColor::secondary, .wraps = true, .maximumLines = 2, .keepsRoom = true, .announces = true};

/// Controls side by side, vertically centred.
Element row(std::vector<StackItem> controls) {
  return std::make_shared<const Stack>(Stack{.orientation = Orientation::horizontal,
                                             .alignment = StackAlignment::center,
                                             .spacing = controlSpacing,
                                             .items = std::move(controls)});
}

}  // namespace

ImportForm::ImportForm()
    : urlField("https://youtube.com/watch?v=… or https://bilibili.com/video/…"),
      permissionCheck("I own this media or have permission to download and use it.", true),
      browserPopup({"Anonymous", "Chrome login", "Safari login"}),
      analyzeButton("Analyze", KeyEquivalent::returnKey),
      pasteButton("Paste"),
      titleLabel("Paste a YouTube or Bilibili link to begin.", titleStyle),
      detailLabel("Processing stays on this Mac.", secondaryStyle),
      modePopup({"Video", "Audio only", "Source subtitle"}),
      qualityPopup({"Analyze first"}),
      subtitlePopup({"No subtitle tracks"}),
      subtitleFormatPopup({"VTT", "SRT"}),
      startButton("Download…"),
      cancelButton("Cancel"),
      statusLabel("ZUNTO Helper is starting…", statusStyle),
      revealButton("Show Downloaded File"),
      headingLabel("Media Import", headingStyle),
      introductionLabel(
          "Paste a YouTube or Bilibili link. Analyze available formats, then save video, audio, or a "
          "source subtitle directly to your Mac.",
          twoLinesStyle),
      accessLabel("Access:"),
      cookiesLabel("Browser cookies never leave this Mac.", secondaryStyle),
      saveAsLabel("Save as:") {
  startButton.setEnabled(false);
  subtitlePopup.setHidden(true);
  subtitleFormatPopup.setHidden(true);
  cancelButton.setHidden(true);
  revealButton.setHidden(true);

  urlField.setAccessibleName("Media link");
  browserPopup.setAccessibleName("Access");
  modePopup.setAccessibleName("Save as");
  qualityPopup.setAccessibleName("Quality");
  subtitlePopup.setAccessibleName("Subtitle track");
  subtitleFormatPopup.setAccessibleName("Subtitle format");
  progress.setAccessibleName("Progress");
}

WindowSpec ImportForm::describeWindow() {
  using std::ref;
  Stack rows{.orientation = Orientation::vertical,
             .alignment = StackAlignment::leading,
             .spacing = rowSpacing,
             .items = {}};
  const auto add = [&rows](Element element, ElementWidth width = ElementWidth::natural) {
    rows.items.push_back({std::move(element), width});
  };
  add(ref(headingLabel));
  add(ref(introductionLabel));
  add(row({{ref(urlField)}, {ref(pasteButton)}, {ref(analyzeButton)}}), ElementWidth::stack);
  add(ref(permissionCheck));
  add(row({{ref(accessLabel), ElementWidth::column}, {ref(browserPopup)}, {ref(cookiesLabel)}}));
  add(Separator(), ElementWidth::stack);
  add(ref(titleLabel));
  add(ref(detailLabel));
  add(row({{ref(saveAsLabel), ElementWidth::column},
           {ref(modePopup)},
           {ref(qualityPopup)},
           {ref(subtitlePopup)},
           {ref(subtitleFormatPopup)}}));
  add(ref(progress), ElementWidth::stack);
  add(ref(statusLabel));
  add(row({{ref(startButton)}, {ref(cancelButton)}, {ref(revealButton)}}));
  return {.title = "ZUNTO Media Import",
          .contentSize = contentSize,
          .minimumSize = minimumSize,
          .insets = insets,
          .content = std::move(rows),
          .dropField = &urlField,
          .job = {.progress = &progress, .runsWhileShown = &cancelButton}};
}

}  // namespace zunto
