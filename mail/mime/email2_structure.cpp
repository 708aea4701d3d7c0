// Where the texts, related items and attachments of a message are in its tree:
//
//   multipart/mixed            when there is an attachment or a related item
//     multipart/related        when there is a related item
//       multipart/alternative  when there are alternatives
//         text/plain, text/html
//       related items
//     attachments
//
// A level that is not needed is left out. Messages of other programs may be built otherwise, so
// nothing here relies on the shape.
#include <utility>

#include "base/ascii.h"
#include "base/log_null.h"
#include "base/text.h"
#include "mail/mime/email2.h"
#include "mail/mime/identifiers.h"

namespace kelvado {
namespace {

constexpr std::string_view kMixed = "multipart/mixed";
constexpr std::string_view kRelated = "multipart/related";
constexpr std::string_view kAlternative = "multipart/alternative";
constexpr std::string_view kPlain = "text/plain";
constexpr std::string_view kHtml = "text/html";

bool hasType(const Email2& part, std::string_view type) {
  return base::equalsNoCase(part.contentType().type, type);
}

// The fields that describe a part's content and move with it.
constexpr std::string_view kContentFields[] = {
    "Content-Type",     "Content-Transfer-Encoding", "Content-Disposition", "Content-ID",
    "Content-Location", "Content-Description",       "Content-Language"};

}  // namespace

// Moves the content of this part into a part of its own.
std::unique_ptr<Email2> Email2::takeContentAsPart() {
  auto part = std::unique_ptr<Email2>(new Email2);
  part->takeContent(*this);
  for (const std::string_view field : kContentFields) {
    // These two are set anew, in their places in the message.
    if (field != "Content-Type" && field != "Content-Transfer-Encoding") header_.remove(field);
  }
  return part;
}

void Email2::becomeContainer(std::string_view contentType, std::string_view marker) {
  ContentType container = ContentType::ofType(contentType);
  container.charset = contentType_.charset;  // remembered: it is the message's
  container.boundary = generateBoundary(marker);
  setContentType(container);
  // A container has no encoding of its own (RFC 2045 section 6.4).
  if (header_.has("Content-Transfer-Encoding")) setTransferEncoding("7bit");
}

bool Email2::hasNoContentYet() const {
  return children_.empty() && body().empty() && hasType(*this, kPlain) && !isAttachment();
}

// The part that holds the message's own text in all its alternatives. Containers of any other kind
// (mixed, related, signed, report) have it first.
Email2& Email2::ownContent() {
  Email2* part = this;
  while (!part->children_.empty() && !hasType(*part, kAlternative)) {
    part = part->children_.front().get();
  }
  if (part->children_.empty() && (part->isAttachment() || !part->contentType_.isText())) {
    // There is nothing but attachments.
    if (!children_.empty() && hasType(*this, kMixed)) {
      children_.insert(children_.begin(), createPart(kPlain, "7bit"));
    } else {
      auto content = takeContentAsPart();
      becomeContainer(kMixed, kMixedMarker);
      children_.push_back(createPart(kPlain, "7bit"));
      children_.push_back(std::move(content));
    }
    part = children_.front().get();
  }
  return *part;
}

// Of alternatives the HTML one, else the plain one.
Email2& Email2::textPart() {
  Email2* part = &ownContent();
  if (Email2* html = part->findText(kHtml)) return *html;
  if (Email2* plain = part->findText(kPlain)) return *plain;
  while (!part->children_.empty()) part = part->children_.front().get();
  return *part;
}

void Email2::setText(std::string text, std::string_view contentType,
                     std::string_view messageCharset) {
  const bool html = base::equalsNoCase(contentType, kHtml);
  ContentType described = contentType_;
  described.type = contentType;
  if (described.charset.empty()) described.charset = messageCharset;
  if (described.charset.empty() && (html || base::contains8bit(text))) described.charset = "utf-8";
  // A new value only for a new meaning: parameters that others gave the field stay.
  if (described.type != contentType_.type || described.charset != contentType_.charset) {
    setContentType(described);
  }
  if (html) setTransferEncoding("quoted-printable");
  setTextBody(std::move(text));
}

void Email2::setMainText(std::string text) {
  Email2& part = textPart();
  const std::string type =
      part.contentType_.type.empty() ? std::string(kPlain) : part.contentType_.type;
  part.setText(std::move(text), type, contentType_.charset);
}

// Into a multipart/alternative: the part of the type, else a new one in its place.
void Email2::setInAlternative(std::string text, std::string_view contentType,
                              std::string_view messageCharset) {
  Email2* part = findText(contentType);
  if (part == nullptr) {
    // Plain text first: a reader shows the last form that it can.
    const bool first = base::equalsNoCase(contentType, kPlain);
    part = children_
               .insert(first ? children_.begin() : children_.end(), createPart(contentType, "7bit"))
               ->get();
  }
  part->setText(std::move(text), contentType, messageCharset);
}

void Email2::setOwnText(std::string text, std::string_view contentType) {
  const std::string charset = contentType_.charset;  // the message's holds for its text
  Email2& content = ownContent();
  if (content.children_.empty()) {
    content.setText(std::move(text), contentType, charset);
  } else {
    content.setInAlternative(std::move(text), contentType, charset);
  }
}

void Email2::setAlternativeText(std::string text, std::string_view contentType) {
  const std::string charset = contentType_.charset;
  Email2& content = ownContent();
  if (!hasType(content, kAlternative)) {
    const bool empty = content.hasNoContentYet();
    auto part = content.takeContentAsPart();
    content.becomeContainer(kAlternative, kAlternativeMarker);
    if (!empty) content.children_.push_back(std::move(part));
  }
  content.setInAlternative(std::move(text), contentType, charset);
}

Email2* Email2::findText(std::string_view contentType) {
  if (children_.empty()) {
    const bool plainByDefault = contentType_.type.empty() && contentType == kPlain;
    return !isAttachment() && (plainByDefault || hasType(*this, contentType)) ? this : nullptr;
  }
  for (const auto& child : children_) {
    if (Email2* found = child->findText(contentType)) return found;
  }
  return nullptr;
}

const Email2* Email2::findText(std::string_view contentType) const {
  return const_cast<Email2*>(this)->findText(contentType);  // which changes nothing
}

void Email2::replaceInTexts(std::string_view from, std::string_view to) {
  if (std::string subject = header_.get("Subject"); base::replaceAll(subject, from, to) > 0) {
    base::LogNull log;
    setHeaderField("Subject", subject, log);
  }
  for (const auto& child : children_) child->replaceInTexts(from, to);
  const bool isFile = isAttachment() || (exactLineEnds_ && !bodyIsUtf8_);
  if (!children_.empty() || !contentType_.isText() || isFile) return;
  std::string text = textBody();
  const std::string type = contentType_.type.empty() ? std::string(kPlain) : contentType_.type;
  if (base::replaceAll(text, from, to) > 0) setText(std::move(text), type, contentType_.charset);
}

void Email2::takeContent(Email2& other) {
  for (const std::string_view field : kContentFields) {
    header_.remove(field);
    const std::string* value = other.header_.find(field);
    if (value != nullptr) header_.add(field, *value);
  }
  contentType_ = other.contentType_;
  transferEncoding_ = other.transferEncoding_;
  disposition_ = std::exchange(other.disposition_, {});
  filename_ = std::exchange(other.filename_, {});
  body_ = std::exchange(other.body_, {});
  bodyIsUtf8_ = other.bodyIsUtf8_;
  exactLineEnds_ = other.exactLineEnds_;
  original_.reset();
  other.original_.reset();
  children_ = std::exchange(other.children_, {});
}

void Email2::addRelated(std::unique_ptr<Email2> item) {
  Email2* group = this;
  if (!hasType(*group, kRelated) && hasType(*group, kMixed) && !children_.empty()) {
    group = children_.front().get();
  }
  if (!hasType(*group, kRelated) || group->children_.empty()) {
    std::unique_ptr<Email2> own;
    if (hasType(*this, kMixed) && !children_.empty()) {
      ownContent();  // makes sure that the first child is text, not an attachment
      own = std::move(children_.front());
      children_.erase(children_.begin());
    } else {
      own = takeContentAsPart();
      becomeContainer(kMixed, kMixedMarker);
    }
    auto container = std::unique_ptr<Email2>(new Email2);
    container->becomeContainer(kRelated, kRelatedMarker);
    container->children_.push_back(std::move(own));
    group = container.get();
    children_.insert(children_.begin(), std::move(container));
  }
  group->children_.push_back(std::move(item));
}

void Email2::addAttachment(std::unique_ptr<Email2> item) {
  if (!hasType(*this, kMixed) || children_.empty()) {
    auto content = takeContentAsPart();
    becomeContainer(kMixed, kMixedMarker);
    children_.push_back(std::move(content));
  }
  children_.push_back(std::move(item));
}

}  // namespace kelvado
