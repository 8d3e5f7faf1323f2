#include "PDUItems.h"

#include <algorithm>
#include <cstring>

#include "Counters.h"

PresentationContext::PresentationContext()
    : PresentationContextID(KESTREL::DrawPresentationContextID()) {}

PresentationContext::PresentationContext(const UID& abstractSyntax, const UID& transferSyntax)
    : PresentationContext() {
  AbstractSyntax = abstractSyntax;
  TransferSyntaxes.push_back(transferSyntax);
}

namespace KESTREL {
namespace pdu {
namespace {

void Put8(std::vector<uint8_t>& out, uint8_t value) { out.push_back(value); }

void Put16(std::vector<uint8_t>& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value));
}

void Put32(std::vector<uint8_t>& out, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void Patch32(std::vector<uint8_t>& out, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) out[at + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

void Patch16(std::vector<uint8_t>& out, size_t at, uint16_t value) {
  out[at] = static_cast<uint8_t>(value >> 8);
  out[at + 1] = static_cast<uint8_t>(value);
}

// An item header whose 16-bit length is patched once the content is written.
size_t BeginItem(std::vector<uint8_t>& out, uint8_t type) {
  Put8(out, type);
  Put8(out, 0);
  Put16(out, 0);
  return out.size();
}

void EndItem(std::vector<uint8_t>& out, size_t contentStart) {
  Patch16(out, contentStart - 2, static_cast<uint16_t>(out.size() - contentStart));
}

void PutTextItem(std::vector<uint8_t>& out, uint8_t type, const char* text, size_t length) {
  size_t start = BeginItem(out, type);
  out.insert(out.end(), text, text + length);
  EndItem(out, start);
}

void PutUIDItem(std::vector<uint8_t>& out, uint8_t type, const UID& uid) {
  PutTextItem(out, type, uid.GetBuffer(), uid.GetSize());
}

void PutPresentationContext(std::vector<uint8_t>& out, uint8_t type,
                            const PresentationContext& context) {
  size_t start = BeginItem(out, type);
  Put8(out, context.PresentationContextID);
  Put8(out, 0);
  Put8(out, type == kPresentationContextACItem ? context.Result : 0);
  Put8(out, 0);
  if (type == kPresentationContextRQItem)
    PutUIDItem(out, kAbstractSyntaxItem, context.AbstractSyntax);
  for (const UID& syntax : context.TransferSyntaxes) PutUIDItem(out, kTransferSyntaxItem, syntax);
  EndItem(out, start);
}

void PutUserInformation(std::vector<uint8_t>& out, const UserInformation& user) {
  size_t start = BeginItem(out, kUserInformationItem);
  size_t lengthStart = BeginItem(out, kMaximumLengthItem);
  Put32(out, user.MaximumLength);
  EndItem(out, lengthStart);
  PutTextItem(out, kImplementationClassItem, user.ImplementationClass.data(),
              user.ImplementationClass.size());
  if (!user.ImplementationVersion.empty())
    PutTextItem(out, kImplementationVersionItem, user.ImplementationVersion.data(),
                user.ImplementationVersion.size());
  EndItem(out, start);
}

// Reads big-endian numbers and spans from a body without ever leaving it.
class Reader {
 public:
  Reader(const uint8_t* data, size_t length) : data_(data), left_(length) {}
  size_t Left() const { return left_; }
  bool Get8(uint8_t& value) {
    if (left_ < 1) return false;
    value = data_[0];
    Advance(1);
    return true;
  }
  bool Get16(uint16_t& value) {
    if (left_ < 2) return false;
    value = static_cast<uint16_t>(data_[0] << 8 | data_[1]);
    Advance(2);
    return true;
  }
  bool Get32(uint32_t& value) {
    if (left_ < 4) return false;
    value = static_cast<uint32_t>(data_[0]) << 24 | static_cast<uint32_t>(data_[1]) << 16 |
            static_cast<uint32_t>(data_[2]) << 8 | data_[3];
    Advance(4);
    return true;
  }
  bool Span(size_t length, const uint8_t*& at) {
    if (left_ < length) return false;
    at = data_;
    Advance(length);
    return true;
  }
  // The next item: its type and a reader over its content.
  bool Item(uint8_t& type, Reader& content) {
    uint8_t reserved;
    uint16_t length;
    const uint8_t* at;
    if (!Get8(type) || !Get8(reserved) || !Get16(length) || !Span(length, at)) return false;
    content = Reader(at, length);
    return true;
  }

 private:
  void Advance(size_t n) {
    data_ += n;
    left_ -= n;
  }
  const uint8_t* data_;
  size_t left_;
};

// UIDs in items are not padded (PS3.8 9.3.2.2.1), but some senders add a NUL or a blank.
bool ReadUID(Reader& item, UID& uid) {
  size_t length = item.Left();
  const uint8_t* at;
  item.Span(length, at);
  const char* text = reinterpret_cast<const char*>(at);
  while (length && (text[length - 1] == '\0' || text[length - 1] == ' ')) --length;
  return uid.Set(text, length);
}

std::string ReadText(Reader& item) {
  size_t length = item.Left();
  const uint8_t* at;
  item.Span(length, at);
  return std::string(reinterpret_cast<const char*>(at), length);
}

bool ReadPresentationContext(uint8_t type, Reader& item, PresentationContext& context) {
  uint8_t id, reserved, result, reserved2;
  if (!item.Get8(id) || !item.Get8(reserved) || !item.Get8(result) || !item.Get8(reserved2))
    return false;
  context.PresentationContextID = id;
  context.Result = type == kPresentationContextACItem ? result : PresentationContext::kAcceptance;
  while (item.Left()) {
    uint8_t subType;
    Reader sub(nullptr, 0);
    if (!item.Item(subType, sub)) return false;
    UID uid;
    if (subType == kAbstractSyntaxItem) {
      ReadUID(sub, uid);  // too long: stays empty, and an empty abstract syntax is refused
      context.AbstractSyntax = uid;
    } else if (subType == kTransferSyntaxItem) {
      if (ReadUID(sub, uid) && !uid.IsEmpty()) context.TransferSyntaxes.push_back(uid);
    }
  }
  return true;
}

bool ReadUserInformation(Reader& item, UserInformation& user) {
  while (item.Left()) {
    uint8_t subType;
    Reader sub(nullptr, 0);
    if (!item.Item(subType, sub)) return false;
    if (subType == kMaximumLengthItem) {
      if (!sub.Get32(user.MaximumLength)) return false;
    } else if (subType == kImplementationClassItem) {
      user.ImplementationClass = ReadText(sub);
    } else if (subType == kImplementationVersionItem) {
      user.ImplementationVersion = ReadText(sub);
    }
  }
  return true;
}

}  // namespace

void SetAETitleField(char field[17], const char* title, size_t length) {
  std::memset(field, ' ', 16);
  std::memcpy(field, title, std::min<size_t>(length, 16));
  field[16] = 0;
}

void EncodeAssociate(uint8_t type, const AssociatePDU& pdu, std::vector<uint8_t>& out) {
  size_t start = out.size();
  Put8(out, type);
  Put8(out, 0);
  Put32(out, 0);
  Put16(out, pdu.ProtocolVersion);
  Put16(out, 0);
  out.insert(out.end(), pdu.CalledAE, pdu.CalledAE + 16);
  out.insert(out.end(), pdu.CallingAE, pdu.CallingAE + 16);
  out.insert(out.end(), 32, 0);
  PutUIDItem(out, kApplicationContextItem, pdu.ApplicationContext);
  uint8_t contextType =
      type == kAssociateRQ ? kPresentationContextRQItem : kPresentationContextACItem;
  for (const PresentationContext& context : pdu.Contexts)
    PutPresentationContext(out, contextType, context);
  PutUserInformation(out, pdu.User);
  Patch32(out, start + 2, static_cast<uint32_t>(out.size() - start - kHeaderLength));
}

void EncodeReject(uint8_t result, uint8_t source, uint8_t reason, std::vector<uint8_t>& out) {
  const uint8_t bytes[] = {kAssociateRJ, 0, 0, 0, 0, 4, 0, result, source, reason};
  out.insert(out.end(), bytes, bytes + sizeof bytes);
}

void EncodeRelease(uint8_t type, std::vector<uint8_t>& out) {
  const uint8_t bytes[] = {type, 0, 0, 0, 0, 4, 0, 0, 0, 0};
  out.insert(out.end(), bytes, bytes + sizeof bytes);
}

void EncodeAbort(uint8_t source, uint8_t reason, std::vector<uint8_t>& out) {
  const uint8_t bytes[] = {kAbort, 0, 0, 0, 0, 4, 0, 0, source, reason};
  out.insert(out.end(), bytes, bytes + sizeof bytes);
}

void EncodeDataHeader(uint8_t contextID, uint8_t control, uint32_t fragmentLength,
                      uint8_t out[12]) {
  const uint32_t pduLength = fragmentLength + 6;
  const uint32_t itemLength = fragmentLength + 2;
  out[0] = kDataTF;
  out[1] = 0;
  for (int i = 0; i < 4; ++i) out[2 + i] = static_cast<uint8_t>(pduLength >> (24 - 8 * i));
  for (int i = 0; i < 4; ++i) out[6 + i] = static_cast<uint8_t>(itemLength >> (24 - 8 * i));
  out[10] = contextID;
  out[11] = control;
}

bool DecodeAssociate(uint8_t type, const uint8_t* body, size_t length, AssociatePDU& pdu) {
  Reader reader(body, length);
  uint16_t reserved;
  const uint8_t* called;
  const uint8_t* calling;
  const uint8_t* zeros;
  if (!reader.Get16(pdu.ProtocolVersion) || !reader.Get16(reserved) || !reader.Span(16, called) ||
      !reader.Span(16, calling) || !reader.Span(32, zeros))
    return false;
  std::memcpy(pdu.CalledAE, called, 16);
  pdu.CalledAE[16] = 0;
  std::memcpy(pdu.CallingAE, calling, 16);
  pdu.CallingAE[16] = 0;
  uint8_t contextType =
      type == kAssociateRQ ? kPresentationContextRQItem : kPresentationContextACItem;
  while (reader.Left()) {
    uint8_t itemType;
    Reader item(nullptr, 0);
    if (!reader.Item(itemType, item)) return false;
    if (itemType == kApplicationContextItem) {
      pdu.ApplicationContextValid = ReadUID(item, pdu.ApplicationContext);
    } else if (itemType == contextType) {
      PresentationContext context;
      if (!ReadPresentationContext(itemType, item, context)) return false;
      pdu.Contexts.push_back(std::move(context));
    } else if (itemType == kUserInformationItem) {
      if (!ReadUserInformation(item, pdu.User)) return false;
    }
  }
  return true;
}

bool DecodeReject(const uint8_t* body, size_t length, RejectFields& fields) {
  if (length < 4) return false;
  fields.Result = body[1];
  fields.Source = body[2];
  fields.Reason = body[3];
  return true;
}

}  // namespace pdu
}  // namespace KESTREL
