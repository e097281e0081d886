// The workaround for json-glib's in-place node re-initialisation, and what reads the node
// layout it rests on. Internal to the support library: not installed, not exported.
#pragma once

struct _JsonNode;

namespace common {
namespace json {

namespace bugfix {

// Makes `node` a null node (json_node_init_null) and then also clears the node's payload
// pointer. json-glib 1.6 releases the payload on re-initialisation but leaves the stale
// pointer in place, and the next json_node_set_* would reuse or release it a second time.
// Every in-place re-initialisation of a node goes through here first.
void clear_node(_JsonNode* node);

// True when the node layout mirrored by clear_node matches the json-glib that is loaded.
// When it does not, clear_node leaves the payload field alone.
bool node_layout_matches();

}  // namespace bugfix

namespace detail {

// The references held on `node`, read through the node layout that bugfix::clear_node
// mirrors; 0 when that layout is not the loaded json-glib's, so that nothing rests on it.
int node_references(_JsonNode* node);

}  // namespace detail

}  // namespace json
}  // namespace common
