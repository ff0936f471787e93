// LocalStore: the write engine shared by the single-node backends (SQLite
// and memory). It turns a Batch into checks and primitive node writes inside
// one backend transaction, keeps the directory nodes in step with the items
// (a directory node exists while something lies below it) and appends the
// events. Backends supply the reads of the Store interface and the
// primitives below; reads made inside a write transaction see its writes.
#ifndef TARVO_LOCAL_STORE_H
#define TARVO_LOCAL_STORE_H

#include "store.h"

namespace tarvo {

class LocalStore : public Store {
public:
    Status apply(const Batch &batch, const WriteChecker *checker,
                 ApplyResult *result) final;
    Status check(std::vector<std::string> *problems) override;

protected:
    virtual Status begin_write() = 0;
    virtual Status commit_write() = 0;
    virtual void rollback_write() = 0;
    virtual Status put_node(const Node &node) = 0;   // insert or replace
    virtual Status erase_node(std::string_view path) = 0;
    virtual Status append_event(const Event &event) = 0;  // seq assigned
    virtual Status trim_events() = 0;  // keep the configured window

private:
    struct Context;
    Status run_op(const Op &op, Context &ctx);
    Status create(const std::string &path, int32_t datatype,
                  const std::string &value, Context &ctx);
    Status set(const std::string &path, int32_t datatype,
               const std::string &value, bool create_missing, Context &ctx);
    Status remove_item(const Node &item, Context &ctx);
    Status remove_item_at(const std::string &path, Context &ctx);
    Status delete_tree(const Op &op, Context &ctx);
    Status delete_if_equal(const Op &op, Context &ctx);
    Status copy(const Op &op, Context &ctx);
    Status copy_item(const Node &item, const std::string &target,
                     Context &ctx);
    Status prune_dirs(std::string dir);
    Status remove_empty_dirs_below(const std::string &dir);
    Status has_children(std::string_view dir, bool *any);
};

}  // namespace tarvo

#endif
