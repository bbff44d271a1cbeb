// The network adapter address of the legacy scheme: one MAC picked
// from the IP helper's list (or NetBIOS), and every adapter address seen.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KyGuid {
class IHardware;
}

namespace KyMacID {

// Six bytes in wire order. The constructors, the byte assignment, the
// comparison and ToString log their entry at TRACE ("enter"); copies do not.
class MACAddress {
 public:
  static constexpr size_t kLength = 6;

  MACAddress();  // all zero
  // Reads exactly six bytes from `bytes`.
  explicit MACAddress(const uint8_t* bytes);
  MACAddress(const MACAddress&) = default;
  MACAddress& operator=(const MACAddress&) = default;
  MACAddress& operator=(const uint8_t* bytes);

  bool operator==(const MACAddress& other) const;
  bool operator!=(const MACAddress& other) const { return !(*this == other); }

  // 12 lower-case hex digits, no separators: "001a2b3c4d5e".
  std::string ToString() const;

  const uint8_t* Bytes() const { return m_bytes; }
  bool IsZero() const;

 private:
  uint8_t m_bytes[kLength];
};

// One LAN adapter number and the adapter address it answered with.
struct LanaAddress {
  uint8_t lana;
  uint8_t address[MACAddress::kLength];
};

// Resets every LAN adapter number NetBIOS lists and asks each for its
// adapter status; `answers` gets those that answer, in NetBIOS's order.
// False when the numbers cannot be listed.
bool QueryLanaAddresses(KyGuid::IHardware& hardware, std::vector<LanaAddress>& answers);

class CMacFetcher {
 public:
  // How good an adapter is for the choice; smaller is better.
  enum AdapterKind : int {
    kPciWired = 0,  // MediaSubType 1 and a PnpInstanceID starting with "PCI"
    kWireless = 1,  // MediaSubType 2
    kWired = 2,     // MediaSubType 1 elsewhere
    kOther = 3,     // anything else, or no readable registry entry
  };

  // Clears `macList`, then tries the IP helper and NetBIOS. When neither
  // gives an address, `mac` becomes 1a2b3c4d5e6f, which is also the list's
  // only entry. Always true.
  bool GetMAC(MACAddress& mac, std::vector<MACAddress>& macList);

  // The IP helper's list, in one call with room for 16 adapters. Appends the
  // address of every Ethernet or PPP adapter to `macList`. `mac` is set only
  // on success.
  bool GetMACbyAdapter(MACAddress& mac, std::vector<MACAddress>& macList);

  // NetBIOS adapter status of every LAN adapter number; the first that
  // answers gives `mac`, every one that answers is appended to `macList`.
  bool GetMACbyNetBiosStat(MACAddress& mac, std::vector<MACAddress>& macList);

  // `adapterName` as the IP helper gives it, braces included.
  int GetAdapterType(const std::string& adapterName);
};

}  // namespace KyMacID
