#include "control.h"
#include "log.h"
#include "process_mutex.h"

#include <ace/Process_Mutex.h>

#include <cerrno>
#include <cstdlib>

namespace
{

// The nodes of the image list own nothing beside themselves; those of the other lists own what
// their `owned` points to. Clients allocate all of it with malloc.
void free_owned(const _ixfs_image_list_t* /*node*/) {}

template <typename Node>
void free_owned(const Node* node)
{
    for (void* const owned : node->owned)
        std::free(owned);
}

template <typename Node>
void free_list(Node* node)
{
    while (node != nullptr) {
        Node* const next = node->next;
        free_owned(node);
        std::free(node);
        node = next;
    }
}

void link_at_head(_ixfs_control_t* handle, _ixfs_view_t* view)
{
    if (handle->views != nullptr)
        handle->views->prev = view;
    view->next = handle->views;
    handle->views = view;
}

void unlink_view(_ixfs_control_t* handle, _ixfs_view_t* view)
{
    if (handle->views == view)
        handle->views = view->next;
    if (view->prev != nullptr)
        view->prev->next = view->next;
    if (view->next != nullptr)
        view->next->prev = view->prev;
}

// Deletes a lock that the view holds for the whole host, so that none stays behind. A lock that was
// never won is somebody else's, and is only closed.
void give_up_lock(_ixfs_view_t* view)
{
    const ProcessMutexPtr lock(view->lock);
    if (lock != nullptr && view->lock_held) {
        lock->release();
        lock->remove();
    }
}

} // namespace

_ixfs_view_t* _ixfs_view_create(_ixfs_control_t* handle)
{
    auto* const view = static_cast<_ixfs_view_t*>(std::calloc(1, sizeof(_ixfs_view_t)));
    if (view == nullptr) {
        Log(handle, "_ixfs_view_create()")
            .error("ERR - calloc(%d) failed, error = %d\n", static_cast<int>(sizeof(_ixfs_view_t)),
                   errno);
        return nullptr;
    }
    link_at_head(handle, view);
    return view;
}

void _ixfs_view_delete(_ixfs_control_t* handle, _ixfs_view_t* view)
{
    if (handle == nullptr || view == nullptr)
        return;
    unlink_view(handle, view);
    if (is_inherited(handle))
        forget_process_mutex(view->lock);
    else
        give_up_lock(view);
    _ixfs_image_file_name_mapping_free(view->file_name_mapping);
    _ixfs_image_list_metadata_free(view->image_list_metadata);
    _ixfs_image_list_free(view->image_list);
    std::free(view);
}

void _ixfs_image_list_free(_ixfs_image_list_t* head)
{
    free_list(head);
}

void _ixfs_image_list_metadata_free(_ixfs_image_list_metadata_t* head)
{
    free_list(head);
}

void _ixfs_image_file_name_mapping_free(_file_name_link_mapping_t* head)
{
    free_list(head);
}
