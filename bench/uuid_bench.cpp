// A disk's identity. The floor, in C++ for once, is the same generator and its own text form.
#include "figures.h"
#include "support/measure.h"

#include <ixfs_uuid.h>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

namespace
{

constexpr long uuids_at_once = 100; // so many that the clock does not count

class Uuids : public Work
{
public:
    bool call() override
    {
        length_ = 0;
        for (long i = 0; i < uuids_at_once; ++i)
            length_ += make().size();
        return true;
    }

    long operations() const override { return uuids_at_once; }

protected:
    std::size_t length() const { return length_ / uuids_at_once; }

private:
    virtual std::string make() = 0;

    std::size_t length_ = 0; // of all together
};

class Ours : public Uuids
{
public:
    bool is_done() override { return length() == 47; }

private:
    std::string make() override { return getVmdkUuid(); }
};

class Floor : public Uuids
{
public:
    bool is_done() override { return length() == 36; }

private:
    std::string make() override
    {
        boost::uuids::random_generator generate;
        return to_string(generate());
    }
};

} // namespace

void add_uuid_figures()
{
    add_benchmark("disk_uuid", "ours", [] { return std::make_unique<Ours>(); });
    add_benchmark("disk_uuid", "floor", [] { return std::make_unique<Floor>(); });
}
