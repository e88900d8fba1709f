#pragma once

class MCPTools;

// The tools an assistant uses to prepare for a 1:1, log what happened and keep track of who owes
// what. People are found by their full name in any case, the first match winning; only add_person
// creates someone, so that a mistyped name never adds a stranger.
namespace PeopleTools {

// get_people, get_person, add_person, get_meetings, log_meeting, get_action_items,
// add_action_item and complete_action_item, in the people group.
void registerAll(MCPTools &tools);

} // namespace PeopleTools
