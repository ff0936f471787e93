// The event list display's four shapes. An event without old or new data
// cannot be made with the console's own commands, so the events are made
// through the client on a scratchpad bind and shown with
// tarvocon_eventlist_display, as the config-manager commands show theirs.
#include <gtest/gtest.h>

#include <string>

#include "tarvocon.h"
#include "test_helpers.h"

namespace {

struct Shape {
    const char *name;
    tarvo_event_td event;
    const char *old_value;  // string values; null: absent
    const char *new_value;
    const char *shown;
};

const Shape SHAPES[] = {
    {"/c", TARVO_EVENT_CREATE, nullptr, "n",
     "New data: CREATE [string (len 2)] \t'/c' \"n\"\n"},
    {"/s", TARVO_EVENT_SET, "o", "n",
     "Old data: SET    [string (len 2)] \t'/s' \"o\"\n"
     "New data: SET    [string (len 2)] \t'/s' \"n\"\n"},
    {"/d", TARVO_EVENT_DELETE, "o", nullptr,
     "Old data: DELETE [string (len 2)] \t'/d' \"o\"\n"},
    {"/n", TARVO_EVENT_SET, nullptr, nullptr, "          SET    [string] \t\t'/n'\n"},
};

TEST(EventListDisplay, EachShapeWithItsPrefix)
{
    tarvo_bind_h_td bind = nullptr;
    ASSERT_EQ(_tarvo_bind(&bind, "", TARVO_BIND_OPTION_SCRATCHPAD), 0);
    for (const Shape &shape : SHAPES) {
        SCOPED_TRACE(shape.name);
        tarvo_edm_notification_td request = {
            shape.name, shape.event, TARVO_DATATYPE_STRING,
            shape.old_value, shape.old_value ? 2u : 0u,
            shape.new_value, shape.new_value ? 2u : 0u};
        ASSERT_EQ(tarvo_edm_notification_generate(bind, &request), 0);
        uint32_t count = 0xFFFFFFFFu;
        tarvo_event_list_h_td list = nullptr;
        ASSERT_EQ(tarvo_event_find(bind, shape.name, "", &count, &list, 0,
                                   TARVO_FIND_OPTION_STRICT), 0);
        ASSERT_EQ(count, 1u);
        int result = -1;
        std::string text = tarvo::test::capture_output(
            {1}, [&] { result = tarvocon_eventlist_display(list, count); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(text, shape.shown);
        tarvo_event_list_free(list);
    }
    _tarvo_unbind(bind);
}

}  // namespace
