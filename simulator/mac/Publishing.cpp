#include "simulator/mac/Publishing.h"

#include <string>

#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Commands.h"
#include "simulator/kernel/Machine.h"
#include "simulator/network/URLLoading.h"
#include "simulator/software/Applications.h"

namespace simulator {

void Publishing::addCommands(Commands& commands) {
  commands.add("image", [this](Arguments& line) -> Action {
    const std::string url = line.text("url");
    if (!isURL(url)) line.fail("member \"url\" must be a URL");
    Publication publication = Publication::parse(line);
    const ImageContent content = ImageContent::parse(line, machine_.process.program());
    const bool isImage = !line.has("body");
    if (!isImage) publication.answer.body = line.text("body");
    return [this, url, publication, content, isImage] {
      Publication complete = publication;
      if (isImage) complete.answer.body = applications_.makeImage(content);
      network_.publish(url, std::move(complete));
    };
  });
}

}  // namespace simulator
