// The figures that are measured, by topic.
#ifndef IXFS_BENCH_FIGURES_H
#define IXFS_BENCH_FIGURES_H

// A short run shows that all can be measured: it leaves out what takes long.
enum class Extent { whole, short_run };

// Each adds its benchmarks, "<figure>/ours", "<figure>/floor" and others, to those that will run.
void add_alternative_figures(Extent extent);
void add_configuration_figures(Extent extent);
void add_descriptor_figures(Extent extent);
void add_folder_delete_figures(Extent extent);
void add_log_callback_figures(Extent extent);
void add_log_figures();
void add_mount_figures(Extent extent);
void add_path_figures();
void add_prepare_figures(Extent extent);
void add_several_vms_figures(Extent extent);
void add_threads_figures(Extent extent);
void add_uuid_figures();
void add_waiting_figures(Extent extent);

#endif
