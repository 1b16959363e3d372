#include "client/store/kept_state.h"

namespace TVK {

int ReadKeptState(EventDataLogging& store, const std::wstring& dataset_id, const std::wstring& key,
                  std::wstring& value) {
  const int result = store.GetState(dataset_id, key, value);
  // A closed store is opened anew by what is written alone.
  if (result != kStoreClosed || store.KeepState(dataset_id, {L"probe", {}}) != 0) return result;
  return store.GetState(dataset_id, key, value);
}

}  // namespace TVK
